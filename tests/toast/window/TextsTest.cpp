#include "toast/window/Texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "toast/window/TextIds.h"

namespace toast {
namespace {

constexpr LANGID kEnglish = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
constexpr LANGID kGerman = MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN);
constexpr UINT kFirst = TEXT_TITLE;
constexpr UINT kLast = TEXT_END_CLIENT_GONE_PERCENT;

std::vector<UINT> IdsOf(const Texts& texts) {
    std::vector<UINT> ids;
    for (UINT id = kFirst - 20; id < kLast + 20; ++id) {
        if (!texts.Text(id, {L"1", L"2"}).empty()) {
            ids.push_back(id);
        }
    }
    return ids;
}

TEST(Texts, AreEnglishAndGerman) {
    EXPECT_EQ(Texts(kEnglish).Text(TEXT_BUTTON_NOT_NOW), L"&Not now");
    EXPECT_EQ(Texts(kGerman).Text(TEXT_BUTTON_CLOSE), L"&Schlie\u00DFen");
}

TEST(Texts, AreTheSameInEveryLanguage) {
    const std::vector<UINT> ids = IdsOf(Texts(kEnglish));
    EXPECT_EQ(ids.size(), 43u);
    EXPECT_EQ(IdsOf(Texts(kGerman)), ids);
}

TEST(Texts, TakeTheSameInsertsInEveryLanguage) {
    for (const UINT id : IdsOf(Texts(kEnglish))) {
        for (const wchar_t* insert : {L"\u03B1", L"\u03B2"}) {
            const auto holds = [&](LANGID language) {
                return Texts(language).Text(id, {L"\u03B1", L"\u03B2"}).find(insert) != std::wstring::npos;
            };
            EXPECT_EQ(holds(kGerman), holds(kEnglish)) << id;
        }
    }
}

TEST(Texts, AreOfTheUsersLanguage) {
    const std::wstring title = Texts().Text(TEXT_TITLE);
    EXPECT_TRUE(title == Texts(kEnglish).Text(TEXT_TITLE) || title == Texts(kGerman).Text(TEXT_TITLE));
}

TEST(Texts, TakeInsertsAsTheyAre) {
    EXPECT_EQ(
        Texts(kEnglish).Text(TEXT_OFFER_NEWER, {L"%1%2%n!", L"<a>{0}</a>"}),
        L"A camera of the KV400 family has firmware %1%2%n!. This computer has firmware <a>{0}</a> for it, "
        L"which is newer.");
    EXPECT_EQ(Texts(kEnglish).Text(TEXT_DOWNLOAD_PERCENT, {L"37"}), L"37 % done.");
}

TEST(Texts, AreEmptyWhereThereAreNone) {
    EXPECT_EQ(Texts(kEnglish).Text(99), L"");
    EXPECT_EQ(Texts(kEnglish).Text(40'000), L"");
    EXPECT_EQ(Texts(MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH)).Text(TEXT_TITLE), L"");
}

// Whether a camera runs its new firmware is not known here.
TEST(Texts, ClaimNoSuccess) {
    for (const LANGID language : {kEnglish, kGerman}) {
        for (const UINT id : IdsOf(Texts(language))) {
            std::wstring text = Texts(language).Text(id, {L"1", L"2"});
            CharLowerW(text.data());
            for (const wchar_t* claim : {L"updated", L"aktualisiert", L"success", L"erfolg"}) {
                EXPECT_EQ(text.find(claim), std::wstring::npos) << id;
            }
        }
    }
}

}  // namespace
}  // namespace toast
