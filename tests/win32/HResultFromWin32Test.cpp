#include "win32/HResultFromWin32.h"

#include <gtest/gtest.h>

namespace {

struct Conversion {
    const char* name;
    LONG code;
    ULONG expected;
};

class HResultFromWin32 : public testing::TestWithParam<Conversion> {};

TEST_P(HResultFromWin32, ConvertsTheCode) {
    EXPECT_EQ(static_cast<ULONG>(win32::HResultFromWin32(GetParam().code)), GetParam().expected);
}

TEST_P(HResultFromWin32, ConvertsTheLastErrorInTheSameWay) {
    SetLastError(static_cast<DWORD>(GetParam().code));
    EXPECT_EQ(static_cast<ULONG>(win32::HResultFromLastError()), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Codes, HResultFromWin32,
    testing::Values(Conversion{"ZeroPassesUnchanged", 0, 0}, Conversion{"OneIsPositive", 1, 0x80070001},
                    Conversion{"FileNotFound", 2, 0x80070002}, Conversion{"AccessDenied", 5, 0x80070005},
                    Conversion{"MoreData", 234, 0x800700EA},
                    Conversion{"AllSixteenBitsAreKept", 0xFFFF, 0x8007FFFF},
                    Conversion{"OnlyTheLowSixteenBitsAreKept", 0x12345, 0x80072345},
                    Conversion{"LargestPositive", 0x7FFFFFFF, 0x8007FFFF},
                    Conversion{"NegativeHResultPassesUnchanged", static_cast<LONG>(0x80004005), 0x80004005},
                    Conversion{"MinusOnePassesUnchanged", -1, 0xFFFFFFFF},
                    Conversion{"SmallestNegativePassesUnchanged", static_cast<LONG>(0x80000000), 0x80000000}),
    [](const auto& conversion) { return conversion.param.name; });

}  // namespace
