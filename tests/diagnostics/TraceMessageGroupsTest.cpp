#include "diagnostics/TraceMessageGroups.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <objbase.h>

#include <array>
#include <set>
#include <string>

namespace {

// The text is put together here, so that no part of the system turns one into the other for both sides.
std::string TextOf(const GUID& id) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", id.Data1,
                  id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3], id.Data4[4],
                  id.Data4[5], id.Data4[6], id.Data4[7]);
    return text.data();
}

TEST(TraceMessageGroups, OfTheServiceBaseIsTheOneOfItsTraceFormatFile) {
    EXPECT_EQ(TextOf(kServiceBaseTraces), "{D3A7CCDD-8055-340B-3A0C-14F1E4FB3339}");
}

TEST(TraceMessageGroups, OfTheUpdateServiceIsTheOneOfItsTraceFormatFile) {
    EXPECT_EQ(TextOf(kUpdateServiceTraces), "{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}");
}

TEST(TraceMessageGroups, OfScopesIsTheOneOfItsTraceFormatFile) {
    EXPECT_EQ(TextOf(kScopeTraces), "{5B0FDCD3-A0E5-3094-0EFF-D5D1628796F4}");
}

// A message is known by its group and number alone.
TEST(TraceMessageGroups, AreAllDifferent) {
    const std::set<std::string> texts{TextOf(kServiceBaseTraces), TextOf(kUpdateServiceTraces),
                                      TextOf(kScopeTraces), TextOf(kToastControllerLaunchTraces),
                                      TextOf(kEventSinkTraces)};
    EXPECT_EQ(texts.size(), 5U);
}

}  // namespace
