#include "toast/conversation/ShownText.h"

#include <gtest/gtest.h>

#include <string>

namespace toast {
namespace {

TEST(ShownText, IsAVersionAsItIs) {
    EXPECT_EQ(ShownText(L"5.10.3.0"), L"5.10.3.0");
    EXPECT_EQ(ShownText(L""), L"");
}

TEST(ShownText, HasNoBlanksAtItsEndsAndNoneTwice) {
    EXPECT_EQ(ShownText(L"  5.10 \u00A0\u3000\u2003 rc 1  "), L"5.10 rc 1");
    EXPECT_EQ(ShownText(L"   "), L"");
}

TEST(ShownText, IsOneLineWithoutControls) {
    EXPECT_EQ(ShownText(L"5.10\r\n\t.3\x7F\u0085.0\u2028"), L"5.10.3.0");
    EXPECT_EQ(ShownText(std::wstring_view(L"5\0.1", 4)), L"5.1");
}

TEST(ShownText, HasNoMarksThatTurnItsDirection) {
    EXPECT_EQ(ShownText(L"\u202E0.3\u202C\u2066.\u2069\u200F5\uFEFF\u061C"), L"0.3.5");
}

TEST(ShownText, IsolatesWhatIsWrittenFromRightToLeft) {
    EXPECT_EQ(ShownText(L"\u05D0 1"), L"\u2068\u05D0 1\u2069");
    EXPECT_EQ(ShownText(L"\U0001E900"), L"\u2068\U0001E900\u2069");
}

TEST(ShownText, KeepsPairsAndDropsHalves) {
    EXPECT_EQ(ShownText(L"\U0001F4F7 5"), L"\U0001F4F7 5");
    EXPECT_EQ(ShownText(std::wstring{L'1', wchar_t{0xD83D}, L'2', wchar_t{0xDCF7}, wchar_t{0xD83D}}), L"12");
    // A tag, which nothing shows.
    EXPECT_EQ(ShownText(L"1\U000E0041\U0010FFFF2"), L"12");
}

TEST(ShownText, IsAsLongAsFortyCharacters) {
    EXPECT_EQ(ShownText(std::wstring(40, L'7')), std::wstring(40, L'7'));
    EXPECT_EQ(ShownText(std::wstring(41, L'7')), std::wstring(39, L'7') + L"\u2026");
    std::wstring pairs;
    std::wstring shown;
    for (int count = 0; count < 41; ++count) {
        pairs += L"\U0001F4F7";
        shown += count < 39 ? L"\U0001F4F7" : L"";
    }
    EXPECT_EQ(ShownText(pairs), shown + L"\u2026");
}

TEST(ShownText, IsOfTheFirstKilobyteAlone) {
    EXPECT_EQ(ShownText(std::wstring(1024, L'\x1') + L"5"), L"");
    EXPECT_EQ(ShownText(std::wstring(1023, L'\x1') + L"56"), L"5");
    EXPECT_EQ(ShownText(std::wstring(50'000'000, L'9')), std::wstring(39, L'9') + L"\u2026");
}

TEST(ShownText, MarksNoKey) {
    EXPECT_EQ(ShownText(L"&Yes"), L"\uFF06Yes");
}

}  // namespace
}  // namespace toast
