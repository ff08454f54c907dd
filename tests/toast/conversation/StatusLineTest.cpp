#include "toast/conversation/StatusLine.h"

#include <gtest/gtest.h>

namespace toast {
namespace {

TEST(StatusLine, IsAStartWithItsNumber) {
    EXPECT_EQ(StatusLineOf(L"start:118"), StatusLine(DownloadStart{118}));
    EXPECT_EQ(StatusLineOf(L"start:0"), StatusLine(DownloadStart{0}));
    EXPECT_EQ(StatusLineOf(L"start:4294967295"), StatusLine(DownloadStart{4'294'967'295}));
}

TEST(StatusLine, IsANumberAlone) {
    EXPECT_EQ(StatusLineOf(L"37"), StatusLine(BlocksTaken{37}));
    EXPECT_EQ(StatusLineOf(L"0"), StatusLine(BlocksTaken{0}));
}

TEST(StatusLine, MeansNothingOtherwise) {
    for (const wchar_t* text :
         {L"", L"start:", L"start: 1", L"start:-1", L"start:4294967296", L"Start:1", L"-1", L"+1", L" 1",
          L"1 ", L"1.5", L"0x10", L"\u0661", L"100 %", L"99999999999999999999999999999999999999"}) {
        EXPECT_EQ(StatusLineOf(text), StatusLine()) << testing::PrintToString(text);
    }
}

}  // namespace
}  // namespace toast
