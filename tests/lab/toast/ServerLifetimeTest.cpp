#include "lab/toast/ServerLifetime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

namespace lab::toast {
namespace {

using namespace std::chrono_literals;

// How long a wait may take to be over on a busy machine.
constexpr auto kPatience = 20s;

void ExpectTheNextReleaseEndsTheWait(ServerLifetime& lifetime) {
    auto released = std::async(std::launch::async, [&] { lifetime.WaitUntilReleased(); });
    EXPECT_EQ(released.wait_for(300ms), std::future_status::timeout);
    lifetime.RemoveHold();
    EXPECT_EQ(released.wait_for(kPatience), std::future_status::ready);
}

TEST(ServerLifetime, WaitsForTheFirstClientBeyondTheGracePeriod) {
    ServerLifetime lifetime;
    auto unused = std::async(std::launch::async, [&] { lifetime.WaitUntilUnused(); });
    EXPECT_EQ(unused.wait_for(2500ms), std::future_status::timeout);
    lifetime.LeaveNow();
    EXPECT_EQ(unused.wait_for(kPatience), std::future_status::ready);
}

TEST(ServerLifetime, EndsAGracePeriodAfterTheLastHold) {
    const auto lifetime = std::make_shared<ServerLifetime>();
    { const ServerLifetime::Hold hold(lifetime); }
    const auto begin = std::chrono::steady_clock::now();
    lifetime->WaitUntilUnused();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1900ms);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 6s);
}

TEST(ServerLifetime, StartsTheGracePeriodAgainForAClientThatComesBack) {
    ServerLifetime lifetime;
    lifetime.AddHold();
    lifetime.RemoveHold();
    auto unused = std::async(std::launch::async, [&] { lifetime.WaitUntilUnused(); });
    EXPECT_EQ(unused.wait_for(100ms), std::future_status::timeout);
    lifetime.AddHold();
    EXPECT_EQ(unused.wait_for(2500ms), std::future_status::timeout);
    lifetime.RemoveHold();
    EXPECT_EQ(unused.wait_for(kPatience), std::future_status::ready);
}

TEST(ServerLifetime, LeavesAtOnceWhenToldTo) {
    ServerLifetime lifetime;
    lifetime.AddHold();
    lifetime.LeaveNow();
    lifetime.WaitUntilUnused();
    lifetime.WaitUntilReleased();
    SUCCEED() << "both waits returned although something is held";
}

TEST(ServerLifetime, WaitsForTheReleaseOfClientsThatSlippedIn) {
    ServerLifetime lifetime;
    lifetime.AddHold();
    ExpectTheNextReleaseEndsTheWait(lifetime);
}

TEST(ServerLifetime, IgnoresAReleaseWithoutItsHold) {
    ServerLifetime lifetime;
    lifetime.RemoveHold();
    lifetime.AddHold();
    ExpectTheNextReleaseEndsTheWait(lifetime);
}

}  // namespace
}  // namespace lab::toast
