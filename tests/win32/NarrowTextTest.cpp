#include "win32/NarrowText.h"

#include <gtest/gtest.h>

namespace {

TEST(NarrowText, CopiesPlainTextCharacterByCharacter) {
    EXPECT_EQ(win32::NarrowText(L"5.10.3.0 \\\\?\\usb#vid_2f1a"), "5.10.3.0 \\\\?\\usb#vid_2f1a");
}

TEST(NarrowText, OfNothingIsNothing) {
    EXPECT_EQ(win32::NarrowText(L""), "");
    EXPECT_EQ(win32::NarrowText({}), "");
}

TEST(NarrowText, KeepsTheLowByteOfEachCharacter) {
    EXPECT_EQ(win32::NarrowText(L"\x0141\x00E9\xFF42"),
              "A\xE9"
              "B");
}

TEST(NarrowText, KeepsAsManyCharactersAsItGetsTerminatorsIncluded) {
    EXPECT_EQ(win32::NarrowText(std::wstring_view(L"a\0b", 3)), std::string("a\0b", 3));
}

}  // namespace
