#include "diagnostics/TraceScope.h"

#include "diagnostics/TraceProvider.h"
#include "tests/support/TraceRecorder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using test_support::TraceRecorder;

constexpr const char* kFunction = "FDUService::OnStart";

class TraceScopeTest : public testing::Test {
  protected:
    TraceScopeTest() { TraceProvider::Register(); }

    // The direction and function of each scope message so far.
    [[nodiscard]] std::vector<std::string> Steps() const {
        std::vector<std::string> steps;
        for (const auto& message : traces_.Find(test_support::kScopeGroup, 12)) {
            steps.push_back(std::string(message.arguments.at(0).c_str()) + message.arguments.at(2).c_str());
        }
        return steps;
    }

    TraceRecorder traces_;
};

TEST_F(TraceScopeTest, TracesEntryAndExitOnce) {
    traces_.EnableSession(8);
    {
        const auto scope = TraceScope::EnterWhenTraced(kFunction, this);
        EXPECT_EQ(Steps(), std::vector<std::string>{"==>FDUService::OnStart"});
    }
    EXPECT_EQ(Steps(), (std::vector<std::string>{"==>FDUService::OnStart", "<==FDUService::OnStart"}));
}

TEST_F(TraceScopeTest, NestsInTheOrderOfTheCalls) {
    traces_.EnableSession(8);
    {
        const auto outer = TraceScope::EnterWhenTraced("outer", this);
        const auto inner = TraceScope::EnterWhenTraced("inner", this);
    }
    EXPECT_EQ(Steps(), (std::vector<std::string>{"==>outer", "==>inner", "<==inner", "<==outer"}));
}

TEST_F(TraceScopeTest, KeepsTheTracedObject) {
    traces_.EnableSession(8);
    const auto scope = TraceScope::EnterWhenTraced(kFunction, this);
    ASSERT_TRUE(scope.has_value());
    EXPECT_EQ(scope->Object(), this);
}

TEST_F(TraceScopeTest, IsTwoPointersLarge) {
    EXPECT_EQ(sizeof(TraceScope), 16U);
}

struct Session {
    UCHAR level;
    ULONG flags;
    bool traced;
};

class TraceScopeSession : public TraceScopeTest, public testing::WithParamInterface<Session> {};

TEST_P(TraceScopeSession, DecidesWhetherThereIsAScope) {
    traces_.EnableSession(GetParam().level, GetParam().flags);
    {
        const auto scope = TraceScope::EnterWhenTraced(kFunction, this);
        EXPECT_EQ(scope.has_value(), GetParam().traced);
    }
    EXPECT_EQ(traces_.Messages().size(), GetParam().traced ? 2U : 0U);
}

INSTANTIATE_TEST_SUITE_P(LevelEightAndFlagBitZero, TraceScopeSession,
                         testing::Values(Session{4, 1, false}, Session{7, 1, false}, Session{8, 1, true},
                                         Session{255, 1, true}, Session{8, 0, false}, Session{255, 2, false},
                                         Session{8, 3, true}));

TEST_F(TraceScopeTest, IsNotMadeWithoutASession) {
    EXPECT_FALSE(TraceScope::EnterWhenTraced(kFunction, this).has_value());
}

// The exit message is of level 4, like every other.
TEST_F(TraceScopeTest, TracesTheExitToASessionThatWasLoweredToLevelFour) {
    traces_.EnableSession(8);
    {
        const auto scope = TraceScope::EnterWhenTraced(kFunction, this);
        traces_.EnableSession(4);
    }
    EXPECT_EQ(Steps(), (std::vector<std::string>{"==>FDUService::OnStart", "<==FDUService::OnStart"}));
}

TEST_F(TraceScopeTest, TracesNoExitWhenTheSessionHasEnded) {
    traces_.EnableSession(8);
    {
        const auto scope = TraceScope::EnterWhenTraced(kFunction, this);
        traces_.DisableSession();
    }
    EXPECT_EQ(Steps(), std::vector<std::string>{"==>FDUService::OnStart"});
}

TEST_F(TraceScopeTest, TracesNoExitOfAFunctionThatWasEnteredUntraced) {
    {
        const auto scope = TraceScope::EnterWhenTraced(kFunction, this);
        traces_.EnableSession(8);
    }
    EXPECT_EQ(Steps(), std::vector<std::string>{});
}

}  // namespace
