#include "win32/Win32Error.h"

#include <gtest/gtest.h>

namespace {

TEST(Win32Error, CarriesTheWholeCode) {
    EXPECT_EQ(win32::Win32Error(0).Code(), 0U);
    EXPECT_EQ(win32::Win32Error(1450).Code(), 1450U);
    EXPECT_EQ(win32::Win32Error(0xFFFFFFFF).Code(), 0xFFFFFFFFU);
}

TEST(Win32Error, IsAStandardExceptionWithAText) {
    const win32::Win32Error error(5);
    const std::exception& base = error;
    EXPECT_STREQ(base.what(), "a Windows call failed");
}

TEST(Win32Error, RaisesTheLastErrorOfTheThread) {
    SetLastError(1450);
    try {
        win32::ThrowLastError();
        FAIL() << "raised nothing";
    } catch (const win32::Win32Error& error) {
        EXPECT_EQ(error.Code(), 1450U);
    }
}

}  // namespace
