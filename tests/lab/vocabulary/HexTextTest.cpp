#include "lab/vocabulary/HexText.h"

#include <gtest/gtest.h>

namespace lab::test {
namespace {

TEST(HexText, WritesLowerCaseWithAndWithoutBlanks) {
    const std::vector<std::uint8_t> bytes{0x21, 0xAB, 0x00};
    EXPECT_EQ(HexText(bytes), "21ab00");
    EXPECT_EQ(SpacedHexText(bytes), "21 ab 00");
    EXPECT_EQ(HexText({}), "");
}

TEST(HexText, ReadsBothForms) {
    const std::vector<std::uint8_t> bytes{0x21, 0xAB, 0x00};
    EXPECT_EQ(BytesFromHex("21ab00"), bytes);
    EXPECT_EQ(BytesFromHex("21 AB 00"), bytes);
    EXPECT_EQ(BytesFromHex(""), std::vector<std::uint8_t>());
    EXPECT_FALSE(BytesFromHex("21a").has_value());
    EXPECT_FALSE(BytesFromHex("-1").has_value());
    EXPECT_FALSE(BytesFromHex("0x").has_value());
}

}  // namespace
}  // namespace lab::test
