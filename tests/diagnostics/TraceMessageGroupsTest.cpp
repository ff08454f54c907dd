#include "diagnostics/TraceMessageGroups.h"

#include "tests/support/GuidText.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

using test_support::GuidText;

TEST(TraceMessageGroups, OfTheServiceBaseIsTheOneOfItsTraceFormatFile) {
    EXPECT_EQ(GuidText(kServiceBaseTraces), "{D3A7CCDD-8055-340B-3A0C-14F1E4FB3339}");
}

TEST(TraceMessageGroups, OfTheUpdateServiceIsTheOneOfItsTraceFormatFile) {
    EXPECT_EQ(GuidText(kUpdateServiceTraces), "{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}");
}

TEST(TraceMessageGroups, OfScopesIsTheOneOfItsTraceFormatFile) {
    EXPECT_EQ(GuidText(kScopeTraces), "{5B0FDCD3-A0E5-3094-0EFF-D5D1628796F4}");
}

// A message is known by its group and number alone.
TEST(TraceMessageGroups, AreAllDifferent) {
    const std::set<std::string> texts{GuidText(kServiceBaseTraces), GuidText(kUpdateServiceTraces),
                                      GuidText(kScopeTraces), GuidText(kToastControllerLaunchTraces),
                                      GuidText(kEventSinkTraces)};
    EXPECT_EQ(texts.size(), 5U);
}

}  // namespace
