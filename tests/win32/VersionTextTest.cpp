#include "win32/VersionText.h"

#include <gtest/gtest.h>

#include <array>

namespace {

std::wstring TextOf(const std::array<std::uint8_t, 4>& bytes) {
    return win32::VersionText(bytes);
}

TEST(VersionText, ShowsTheLastByteFirst) {
    EXPECT_EQ(TextOf({0x05, 0x0B, 0x02, 0x01}), L"1.2.11.5");
}

TEST(VersionText, IsUnsigned) {
    EXPECT_EQ(TextOf({255, 128, 254, 129}), L"129.254.128.255");
}

TEST(VersionText, OfZerosIsTheUnknownVersion) {
    EXPECT_EQ(TextOf({0, 0, 0, 0}), L"0.0.0.0");
}

TEST(VersionText, HasNoLeadingZeros) {
    EXPECT_EQ(TextOf({0, 3, 10, 5}), L"5.10.3.0");
}

}  // namespace
