#include "discovery/DevicePathMatching.h"

#include "discovery/WatchedProducts.h"
#include "tests/support/ProcessorTime.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cwchar>
#include <ostream>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace {

const std::wstring kClass = L"{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

const std::vector<DeviceFilter> kBothProducts{{L"vid_2f1a", L"pid_7e01", L""},
                                              {L"vid_2f1a", L"pid_7e02", L""}};

// ---- The data

TEST(DevicePathMatching, NumbersTheInterfaceKinds) {
    EXPECT_EQ(sizeof(InterfaceKind), 4U);
    EXPECT_EQ(static_cast<std::int32_t>(InterfaceKind::Interface00), 0);
    EXPECT_EQ(static_cast<std::int32_t>(InterfaceKind::Interface02), 1);
    EXPECT_EQ(static_cast<std::int32_t>(InterfaceKind::Interface04), 2);
    EXPECT_EQ(static_cast<std::int32_t>(InterfaceKind::Other), 4);
}

TEST(DevicePathMatching, WatchesTheFamilysDfuModeProducts) {
    EXPECT_STREQ(kVendorText, L"vid_2f1a");
    EXPECT_STREQ(kFirstDfuProductText, L"pid_7e01");
    EXPECT_STREQ(kSecondDfuProductText, L"pid_7e02");
    EXPECT_STREQ(kDfuDeviceWatcherName, L"DFU device watcher");
}

// ---- ToLowerCopy

TEST(ToLowerCopy, FoldsEveryCharacterAndKeepsTheLength) {
    EXPECT_EQ(ToLowerCopy(L"\\\\?\\USB#VID_2F1A&Pid_7e01#AZ@[`{#{A5DC}"),
              L"\\\\?\\usb#vid_2f1a&pid_7e01#az@[`{#{a5dc}");
}

TEST(ToLowerCopy, CopiesAnEmptyText) {
    EXPECT_EQ(ToLowerCopy(L""), L"");
}

TEST(ToLowerCopy, DoesNotEndAtAZeroCharacter) {
    EXPECT_EQ(ToLowerCopy(std::wstring_view(L"A\0B", 3)), std::wstring(L"a\0b", 3));
}

TEST(ToLowerCopy, TakesEveryCharacterValue) {
    std::wstring all;
    for (unsigned value = 0; value <= 0xFFFF; ++value) {
        all.push_back(static_cast<wchar_t>(value));
    }
    EXPECT_EQ(ToLowerCopy(all).size(), all.size());
}

// ---- FoldToLower

TEST(FoldToLower, FoldsInPlaceAcrossTerminators) {
    std::wstring links(L"\\\\?\\USB#VID_2F1A\0\\\\?\\Usb#Vid_2f1B\0\0", 36);
    FoldToLower(links);
    EXPECT_EQ(links, std::wstring(L"\\\\?\\usb#vid_2f1a\0\\\\?\\usb#vid_2f1b\0\0", 36));
}

TEST(FoldToLower, TakesAnEmptyText) {
    std::wstring text;
    FoldToLower(text);
    EXPECT_EQ(text, L"");
}

// ---- MatchesFilters

TEST(MatchesFilters, TakesBothProductsOfTheFamily) {
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_7e01#1#" + kClass, kBothProducts));
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_7e02#1#" + kClass, kBothProducts));
}

TEST(MatchesFilters, TakesALinkInUpperCaseOnceItIsFolded) {
    const std::wstring link = L"\\\\?\\USB#VID_2F1A&PID_7E01#1#" + kClass;
    EXPECT_FALSE(MatchesFilters(link, kBothProducts));
    EXPECT_TRUE(MatchesFilters(ToLowerCopy(link), kBothProducts));
}

TEST(MatchesFilters, LeavesAnotherProductOfTheVendor) {
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_7e03#1#" + kClass, kBothProducts));
}

TEST(MatchesFilters, LeavesTheProductOfAnotherVendor) {
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1b&pid_7e01#1#" + kClass, kBothProducts));
}

TEST(MatchesFilters, FindsThePatternAnywhereInTheLink) {
    EXPECT_TRUE(MatchesFilters(L"before\\\\?\\usb#vid_2f1a&pid_7e01behind", kBothProducts));
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_7e01", kBothProducts));
}

TEST(MatchesFilters, NeedsTheWholePrefix) {
    EXPECT_FALSE(MatchesFilters(L"\\?\\usb#vid_2f1a&pid_7e01#1#" + kClass, kBothProducts));
    EXPECT_FALSE(MatchesFilters(L"usb#vid_2f1a&pid_7e01#1#" + kClass, kBothProducts));
    EXPECT_FALSE(MatchesFilters(L"\\\\.\\usb#vid_2f1a&pid_7e01#1#" + kClass, kBothProducts));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\hid#vid_2f1a&pid_7e01#1#" + kClass, kBothProducts));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1a#pid_7e01#1#" + kClass, kBothProducts));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#pid_7e01&vid_2f1a#1#" + kClass, kBothProducts));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_7e0", kBothProducts));
}

// The texts are plain text: nothing in them stands for something else.
TEST(MatchesFilters, TakesTheFilterTextsLiterally) {
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_7e01", {{L"vid_....", L"pid_.*", L""}}));
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#vid_....&pid_.*", {{L"vid_....", L"pid_.*", L""}}));
}

TEST(MatchesFilters, TakesEveryProductOfAVendorWithoutAProductText) {
    const std::vector<DeviceFilter> anyProduct{{L"vid_2f1a", L"", L""}};
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_0001#1#" + kClass, anyProduct));
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#vid_2f1a#1", anyProduct)) << "no \"&\" is asked for";
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1b&pid_0001#1#" + kClass, anyProduct));
}

TEST(MatchesFilters, DoesNotUseTheThirdText) {
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_7e01", {{L"vid_2f1a", L"pid_7e01", L"something"}}));
}

TEST(MatchesFilters, MatchesNothingWithoutFilters) {
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_7e01#1#" + kClass, {}));
}

TEST(MatchesFilters, MatchesNoEmptyLink) {
    EXPECT_FALSE(MatchesFilters(L"", kBothProducts));
}

TEST(MatchesFilters, TakesALinkOf32767Characters) {
    const std::wstring start = L"\\\\?\\usb#vid_2f1a&pid_7e02#";
    EXPECT_TRUE(MatchesFilters(start + std::wstring(32767 - start.size(), L'x'), kBothProducts));
    EXPECT_TRUE(MatchesFilters(std::wstring(32767 - start.size(), L'x') + start, kBothProducts));
    EXPECT_FALSE(MatchesFilters(std::wstring(32767, L'\\'), kBothProducts));
}

TEST(MatchesFilters, GoesOnBehindAPrefixThatLeadsElsewhere) {
    const std::wstring camera = L"\\\\?\\usb#vid_2f1a&pid_7e02#1#" + kClass;
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#vid_0000&pid_0000" + camera, kBothProducts));
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_7e0" + camera, kBothProducts));
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#" + camera, kBothProducts));
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb" + camera, kBothProducts));
    EXPECT_TRUE(MatchesFilters(L"\\" + camera, kBothProducts));
}

TEST(MatchesFilters, TakesNoPatternFromTwoPlaces) {
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1a\\\\?\\usb#vid_0000&pid_7e01", kBothProducts));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1a\\\\?\\usb#&pid_7e01", kBothProducts));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_0000&pid_0000#vid_2f1a&pid_7e01", kBothProducts));
}

TEST(MatchesFilters, NeedsTheAmpersandBetweenVendorAndProduct) {
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1apid_7e01", kBothProducts));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1a#pid_7e01", kBothProducts));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&&pid_7e01", kBothProducts));
}

TEST(MatchesFilters, LeavesALinkThatEndsInsideThePattern) {
    const std::wstring pattern = L"\\\\?\\usb#vid_2f1a&pid_7e01";
    for (std::size_t length = 0; length < pattern.size(); ++length) {
        EXPECT_FALSE(MatchesFilters(pattern.substr(0, length), kBothProducts)) << length << " characters";
    }
    EXPECT_TRUE(MatchesFilters(pattern, kBothProducts));
}

TEST(MatchesFilters, TriesEveryFilterWhateverTheOthersAreLike) {
    const std::wstring link = L"\\\\?\\usb#vid_2f1a&pid_0001";
    EXPECT_TRUE(MatchesFilters(link, {{L"vid_2f1a", L"pid_7e01", L""}, {L"vid_2f1a", L"", L""}}));
    EXPECT_TRUE(MatchesFilters(link, {{L"vid_2f1a", L"", L""}, {L"vid_2f1a", L"pid_7e01", L""}}));
    EXPECT_TRUE(MatchesFilters(link, {{L"vid_2f1a&pid_0001&rev", L"", L""}, {L"vid_2f1", L"", L""}}));
    EXPECT_FALSE(MatchesFilters(link, {{L"vid_2f1a", L"pid_7e01", L""}, {L"vid_2f1b", L"", L""}}));
}

TEST(MatchesFilters, AnEmptyVendorTextAddsNothingToThePattern) {
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#", {{L"", L"", L""}}));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb", {{L"", L"", L""}}));
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#&pid_7e01", {{L"", L"pid_7e01", L""}}));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#vid_2f1a&pid_7e01", {{L"", L"pid_7e01", L""}}));
}

TEST(MatchesFilters, FindsAVendorTextThatHasThePrefixInIt) {
    const std::vector<DeviceFilter> nested{{L"\\\\?\\usb#a", L"", L""}};
    EXPECT_TRUE(MatchesFilters(L"\\\\?\\usb#\\\\?\\usb#\\\\?\\usb#a", nested));
    EXPECT_FALSE(MatchesFilters(L"\\\\?\\usb#a", nested));
}

TEST(MatchesFilters, FindsWhatASearchForEachWholePatternFinds) {
    const std::array pieces{L"\\\\?\\usb#", L"\\",       L"vid_2f1a",         L"&",
                            L"pid_7e01",    L"pid_7e02", L"vid_2f1a&pid_7e01"};
    std::mt19937 generator(20240311);
    constexpr int kLinks = 20000;
    int matching = 0;
    for (int count = 0; count < kLinks; ++count) {
        std::wstring link;
        for (unsigned length = generator() % 10; length > 0; --length) {
            link += pieces[generator() % pieces.size()];
        }
        const bool expected = link.find(L"\\\\?\\usb#vid_2f1a&pid_7e01") != std::wstring::npos ||
                              link.find(L"\\\\?\\usb#vid_2f1a&pid_7e02") != std::wstring::npos;
        ASSERT_EQ(MatchesFilters(link, kBothProducts), expected) << testing::PrintToString(link);
        matching += expected ? 1 : 0;
    }
    EXPECT_GT(matching, kLinks / 20) << "too few links match for a comparison";
}

// ---- ExtractInstancePart

struct InstanceCase {
    const wchar_t* link;
    const wchar_t* instance;

    friend void PrintTo(const InstanceCase& each, std::ostream* out) {
        *out << testing::PrintToString(each.link);
    }
};

class ExtractInstancePartOf : public testing::TestWithParam<InstanceCase> {};

TEST_P(ExtractInstancePartOf, GivesWhatTheExpressionCaptures) {
    EXPECT_EQ(ExtractInstancePart(GetParam().link), GetParam().instance);
}

INSTANTIATE_TEST_SUITE_P(
    Links, ExtractInstancePartOf,
    testing::Values(
        // a composite device's interface, as the configuration manager reports it
        InstanceCase{L"\\\\?\\usb#vid_2f1a&pid_7e01&mi_02#6&2a0b1c3d&0&0002#{a5dcbf10}", L"6&2a0b1c3d&0"},
        // a single-interface device carries no interface number
        InstanceCase{L"\\\\?\\usb#vid_2f1a&pid_7e01#6&2a0b1c3d&0&0002#{a5dcbf10}", L""},
        // no "&....#" behind the number: too short, too long, no "&", no "#"
        InstanceCase{L"mi_00#6&2a0b1c3d&0&002#{a5}", L""},
        InstanceCase{L"mi_00#6&2a0b1c3d&0&00002#{a5}", L""}, InstanceCase{L"mi_00#60002#", L""},
        InstanceCase{L"mi_00#6&0002", L""}, InstanceCase{L"mi_00#", L""},
        // the shortest that matches, with an empty capture
        InstanceCase{L"mi_00#&0000#", L""}, InstanceCase{L"mi_00#x&0000#", L"x"},
        // greedy: up to the last "&" that four characters and "#" follow
        InstanceCase{L"mi_00#a&1111#b&2222#c", L"a&1111#b"}, InstanceCase{L"mi_00#a&1111#b&22222#c", L"a"},
        InstanceCase{L"mi_00#a&&&&&#", L"a"}, InstanceCase{L"mi_00#a&&1111#", L"a&"},
        InstanceCase{L"mi_00#a&###########", L"a"}, InstanceCase{L"mi_00#a&11#1#", L"a"},
        // any two characters stand for the number
        InstanceCase{L"mi_zz#a&1111#", L"a"}, InstanceCase{L"mi_###a&1111#", L"a"},
        InstanceCase{L"mi_0#a&1111#", L""}, InstanceCase{L"mi_000#a&1111#", L""},
        // the leftmost number at which the whole expression matches
        InstanceCase{L"mi_00#a mi_02#b&1111#", L"a mi_02#b"}, InstanceCase{L"mi_0 mi_02#b&1111#", L"b"},
        InstanceCase{L"mi_mi_02#b&1111#", L"b"}, InstanceCase{L"mi_00#a&1111", L""},
        // only folded links are known
        InstanceCase{L"MI_00#a&1111#", L""},
        // a dot stands for no line break, so that each line stands alone
        InstanceCase{L"mi_00#a\nb&1111#", L""}, InstanceCase{L"mi_00#a\rb&1111#", L""},
        InstanceCase{L"mi_00#a&11\n1#", L""}, InstanceCase{L"mi_0\n#a&1111#", L""},
        InstanceCase{L"mi_00#a&1111#\nmi_02#b&2222#", L"a"}, InstanceCase{L"mi_00#a\nmi_02#b&2222#", L"b"},
        InstanceCase{L"mi_00#\r\nmi_02#b&2222#\n", L"b"}, InstanceCase{L"mi_00#a\u2028b&1111#", L""},
        InstanceCase{L"mi_00#a\u2029mi_02#b&2222#", L"b"}, InstanceCase{L"", L""}));

// ---- ExtractInterfaceKind

struct KindCase {
    const wchar_t* link;
    int kind;

    friend void PrintTo(const KindCase& each, std::ostream* out) {
        *out << testing::PrintToString(each.link);
    }
};

class ExtractInterfaceKindOf : public testing::TestWithParam<KindCase> {};

TEST_P(ExtractInterfaceKindOf, MapsTheNumber) {
    EXPECT_EQ(static_cast<int>(ExtractInterfaceKind(GetParam().link)), GetParam().kind);
}

INSTANTIATE_TEST_SUITE_P(
    Links, ExtractInterfaceKindOf,
    testing::Values(KindCase{L"\\\\?\\usb#vid_2f1a&pid_7e01&mi_00#6&2a0b1c3d&0&0000#{a5dcbf10}", 0},
                    KindCase{L"\\\\?\\usb#vid_2f1a&pid_7e01&mi_02#6&2a0b1c3d&0&0002#{a5dcbf10}", 1},
                    KindCase{L"\\\\?\\usb#vid_2f1a&pid_7e01&mi_04#6&2a0b1c3d&0&0004#{a5dcbf10}", 2},
                    KindCase{L"\\\\?\\usb#vid_2f1a&pid_7e01#6&2a0b1c3d&0&0000#{a5dcbf10}", 4},
                    // every other number
                    KindCase{L"mi_01#", 4}, KindCase{L"mi_03#", 4}, KindCase{L"mi_05#", 4},
                    KindCase{L"mi_06#", 4}, KindCase{L"mi_08#", 4}, KindCase{L"mi_10#", 4},
                    KindCase{L"mi_20#", 4}, KindCase{L"mi_40#", 4}, KindCase{L"mi_99#", 4},
                    // the leading digits count, as far as there are any
                    KindCase{L"mi_0x#", 0}, KindCase{L"mi_2x#", 1}, KindCase{L"mi_4x#", 2},
                    KindCase{L"mi_x2#", 0}, KindCase{L"mi_zz#", 0}, KindCase{L"mi_ 2#", 1},
                    KindCase{L"mi_+4#", 2}, KindCase{L"mi_-2#", 4}, KindCase{L"mi_-0#", 0},
                    KindCase{L"mi_2.#", 1}, KindCase{L"mi_###", 0},
                    // in decimal alone
                    KindCase{L"mi_0a#", 0}, KindCase{L"mi_2f#", 1}, KindCase{L"mi_e4#", 0},
                    // no number, or none that two characters long
                    KindCase{L"mi_0#", 4}, KindCase{L"mi_000#", 4}, KindCase{L"mi_00", 4},
                    KindCase{L"mi_", 4}, KindCase{L"mi_0\n#", 4}, KindCase{L"mi_0\u2028#", 4},
                    KindCase{L"mi_0\u2029#", 4}, KindCase{L"MI_00#", 4}, KindCase{L"", 4},
                    // the leftmost one
                    KindCase{L"mi_02#mi_04#", 1}, KindCase{L"mi_2 mi_04#", 2}, KindCase{L"mi_mi_02#", 1},
                    KindCase{L"line\nmi_02#", 1}));

// ---- The dot of both expressions

// Every character but the four line terminators of the expressions' grammar.
TEST(DevicePathMatching, TakesEveryCharacterButTheFourLineTerminatorsForADot) {
    std::wstring refused;
    for (unsigned value = 0; value <= 0xFFFF; ++value) {
        const auto character = static_cast<wchar_t>(value);
        const bool inNumber =
            ExtractInterfaceKind(std::wstring(L"mi_x") + character + L"#") != InterfaceKind::Other;
        const bool inNumberOfInstance =
            !ExtractInstancePart(std::wstring(L"mi_") + character + L"0#x&1111#").empty();
        const bool inInstance =
            !ExtractInstancePart(std::wstring(L"mi_00#x") + character + L"&1111#").empty();
        const bool inGap = !ExtractInstancePart(std::wstring(L"mi_00#x&1") + character + L"11#").empty();
        if (!inGap) {
            refused.push_back(character);
        }
        ASSERT_EQ(inNumber, inGap) << value;
        ASSERT_EQ(inNumberOfInstance, inGap) << value;
        ASSERT_EQ(inInstance, inGap) << value;
    }
    EXPECT_EQ(refused, L"\n\r\u2028\u2029");
}

// ---- Both against the expressions that they replace

// Short random links out of the pieces that matter to the expressions.
class RandomLinks {
  public:
    std::wstring Next() {
        static const std::array<const wchar_t*, 20> kPieces{
            L"mi_", L"mi_", L"mi_", L"#", L"#", L"#",  L"&",  L"&",  L"&",      L"0",
            L"2",   L"4",   L"3",   L"x", L"m", L"i_", L"\n", L"\r", L"\u2028", L"\u2029"};
        std::wstring link;
        for (int count = Below(24); count > 0; --count) {
            link += Shape(Below(8), kPieces[static_cast<std::size_t>(Below(20))]);
        }
        return link;
    }

  private:
    // Mostly a single piece; now and then one of the wholes that pieces rarely make.
    std::wstring Shape(int shape, const wchar_t* piece) {
        switch (shape) {
            case 0:
                return L"mi_0" + std::to_wstring(Below(6)) + L"#";
            case 1:
                return L"&000" + std::to_wstring(Below(10)) + L"#";
            default:
                return piece;
        }
    }

    int Below(int limit) { return static_cast<int>(generator_() % static_cast<unsigned>(limit)); }

    std::mt19937 generator_{20240229};
};

constexpr int kRandomLinks = 10000;

TEST(DevicePathMatching, ExtractsTheInstancePartThatTheExpressionCaptures) {
    const std::wregex expression(L"mi_..#(.*)&....#");
    RandomLinks links;
    int captured = 0;
    int severalTails = 0;
    for (int count = 0; count < kRandomLinks; ++count) {
        const std::wstring link = links.Next();
        std::wsmatch match;
        const bool matches = std::regex_search(link, match, expression);
        const std::wstring expected = matches && match.size() == 2 ? match[1].str() : L"";
        ASSERT_EQ(ExtractInstancePart(link), expected) << testing::PrintToString(link);
        captured += expected.empty() ? 0 : 1;
        severalTails += expected.find(L'&') != std::wstring::npos ? 1 : 0;
    }
    EXPECT_GT(captured, kRandomLinks / 20) << "too few links match for a comparison";
    EXPECT_GT(severalTails, kRandomLinks / 50);
}

TEST(DevicePathMatching, ExtractsTheInterfaceKindOfTheNumberThatTheExpressionCaptures) {
    const std::wregex expression(L"mi_(..)#.*");
    RandomLinks links;
    std::array<int, 5> found{};
    for (int count = 0; count < kRandomLinks; ++count) {
        const std::wstring link = links.Next();
        std::wsmatch match;
        int expected = 4;
        if (std::regex_search(link, match, expression) && match.size() == 2) {
            const int number = _wtoi(match[1].str().c_str());
            expected = number == 0 ? 0 : number == 2 ? 1 : number == 4 ? 2 : 4;
        }
        ASSERT_EQ(static_cast<int>(ExtractInterfaceKind(link)), expected) << testing::PrintToString(link);
        ++found[static_cast<std::size_t>(expected)];
    }
    EXPECT_GT(found[0], kRandomLinks / 50);
    EXPECT_GT(found[1], kRandomLinks / 50);
    EXPECT_GT(found[2], kRandomLinks / 50);
    EXPECT_GT(found[4], kRandomLinks / 50);
}

// ---- Links of any length

std::wstring Repeated(const std::wstring& piece, std::size_t length) {
    std::wstring text;
    while (text.size() + piece.size() <= length) {
        text += piece;
    }
    return text;
}

class DevicePathOf32767Characters : public testing::TestWithParam<const wchar_t*> {};

// No recursion, and no search whose time rises with the square of the length: either would show here.
TEST_P(DevicePathOf32767Characters, IsSearchedInNoTime) {
    const std::wstring link = Repeated(GetParam(), 32767);
    const std::chrono::nanoseconds start = test_support::ProcessorTime();
    for (int count = 0; count < 20; ++count) {
        EXPECT_EQ(ExtractInstancePart(link).find(L"\u2603"), std::wstring::npos);
        EXPECT_NE(static_cast<int>(ExtractInterfaceKind(link)), 3);
    }
    EXPECT_LT(test_support::ProcessorTime() - start, std::chrono::seconds(2));
}

INSTANTIATE_TEST_SUITE_P(Pieces, DevicePathOf32767Characters,
                         testing::Values(L"x", L"mi_", L"mi_00", L"mi_00#", L"&", L"#", L"&0000",
                                         L"mi_00#&000", L"mi_00#\n", L"mi_00#&0000\n", L"mi_00#x&000#"));

TEST(DevicePathMatching, FindsTheInstancePartInALinkOf32767Characters) {
    const std::wstring start = L"\\\\?\\usb#vid_2f1a&pid_7e01&mi_04#";
    const std::wstring end = L"&0004#" + kClass;
    const std::wstring instance(32767 - start.size() - end.size(), L'y');
    EXPECT_EQ(ExtractInstancePart(start + instance + end), instance);
    EXPECT_EQ(ExtractInterfaceKind(start + instance + end), InterfaceKind::Interface04);
}

}  // namespace
