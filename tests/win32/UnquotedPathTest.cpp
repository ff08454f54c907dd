#include "win32/UnquotedPath.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

TEST(UnquotedPath, CopiesAPathWithoutQuotes) {
    EXPECT_EQ(win32::UnquotedPath(L"C:\\firmware\\image.bin"), L"C:\\firmware\\image.bin");
}

TEST(UnquotedPath, TakesAwayThePairAroundThePath) {
    EXPECT_EQ(win32::UnquotedPath(L"\"C:\\my firmware\\image.bin\""), L"C:\\my firmware\\image.bin");
}

TEST(UnquotedPath, TakesAwayOnePairOnly) {
    EXPECT_EQ(win32::UnquotedPath(L"\"\"image.bin\"\""), L"\"image.bin\"");
}

TEST(UnquotedPath, CopiesAPathWithAQuoteAtOneEndOnly) {
    EXPECT_EQ(win32::UnquotedPath(L"\"image.bin"), L"\"image.bin");
    EXPECT_EQ(win32::UnquotedPath(L"image.bin\""), L"image.bin\"");
}

TEST(UnquotedPath, LeavesQuotesInsideThePath) {
    EXPECT_EQ(win32::UnquotedPath(L"a\"b"), L"a\"b");
}

TEST(UnquotedPath, OfNothingIsNothing) {
    EXPECT_EQ(win32::UnquotedPath(L""), L"");
}

TEST(UnquotedPath, OfAnEmptyPairIsNothing) {
    EXPECT_EQ(win32::UnquotedPath(L"\"\""), L"");
}

// Its one character is both quotes.
TEST(UnquotedPath, OfOneSingleQuoteRaisesOutOfRange) {
    try {
        static_cast<void>(win32::UnquotedPath(L"\""));
        FAIL() << "raised nothing";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "invalid string position");
    }
}

}  // namespace
