#include "check/EndSignal.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>

namespace {

using check::EndSignal;
using namespace std::chrono_literals;

}  // namespace

TEST(EndSignal, CtrlCEndsTheWaitAndNothingElse) {
    EndSignal end;
    auto waiting = std::async(std::launch::async, [&end] { end.Wait(60); });
    EXPECT_EQ(waiting.wait_for(200ms), std::future_status::timeout);
    EXPECT_TRUE(EndSignal::OnConsoleControl(CTRL_C_EVENT));
    EXPECT_EQ(waiting.wait_for(10s), std::future_status::ready);
    EXPECT_FALSE(EndSignal::IsToGiveUp());
}

TEST(EndSignal, TheTimeEndsTheWait) {
    EndSignal end;
    end.Wait(1);
    EXPECT_FALSE(EndSignal::IsToGiveUp());
}

TEST(EndSignal, CtrlCOutsideTheWaitGivesUp) {
    EndSignal end;
    EXPECT_TRUE(EndSignal::OnConsoleControl(CTRL_BREAK_EVENT));
    EXPECT_TRUE(EndSignal::IsToGiveUp());
    end.Wait(60);
}

TEST(EndSignal, AConsoleThatClosesWaitsUntilAllIsCleanedUp) {
    auto end = std::make_unique<EndSignal>();
    auto closing =
        std::async(std::launch::async, [] { return EndSignal::OnConsoleControl(CTRL_CLOSE_EVENT); });
    end->Wait(60);
    EXPECT_TRUE(EndSignal::IsToGiveUp());
    EXPECT_EQ(closing.wait_for(200ms), std::future_status::timeout);
    end.reset();
    EXPECT_EQ(closing.wait_for(2s), std::future_status::ready);
}

TEST(EndSignal, ANewOneBeginsAnew) {
    const EndSignal end;
    EXPECT_FALSE(EndSignal::IsToGiveUp());
}
