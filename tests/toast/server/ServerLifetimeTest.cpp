#include "toast/server/ServerLifetime.h"

#include <gtest/gtest.h>

#include <thread>

namespace toast {
namespace {

using std::chrono::milliseconds;

constexpr ServerLifetime::Times kShort{milliseconds(30), milliseconds(20), milliseconds(5)};

TEST(ServerLifetime, EndsWhenNoClientComes) {
    ServerLifetime lifetime(kShort);
    lifetime.WaitUntilUnused([] {});
}

TEST(ServerLifetime, LastsUntilTheLastHoldIsGone) {
    const auto lifetime = std::make_shared<ServerLifetime>(kShort);
    auto hold = std::make_unique<ServerLifetime::Hold>(lifetime);
    lifetime->AddHold();
    int pulses = 0;
    bool held = true;
    lifetime->WaitUntilUnused([&] {
        ++pulses;
        if (pulses == 20) {
            hold.reset();
        } else if (pulses == 40) {
            held = false;
            lifetime->RemoveHold();
        }
    });
    EXPECT_FALSE(held);
    EXPECT_GE(pulses, 40);
}

TEST(ServerLifetime, GoesOnForAClientThatComesStraightBack) {
    const auto lifetime = std::make_shared<ServerLifetime>(kShort);
    { const ServerLifetime::Hold hold(lifetime); }
    std::unique_ptr<ServerLifetime::Hold> second;
    int pulses = 0;
    lifetime->WaitUntilUnused([&] {
        ++pulses;
        if (pulses == 1) {
            second = std::make_unique<ServerLifetime::Hold>(lifetime);
        } else if (pulses == 30) {
            second.reset();
        }
    });
    EXPECT_GE(pulses, 30);
}

TEST(ServerLifetime, IgnoresAReleaseWithoutItsLock) {
    ServerLifetime lifetime(kShort);
    lifetime.RemoveHold();
    lifetime.AddHold();
    lifetime.RemoveHold();
    lifetime.WaitUntilUnused([] {});
}

TEST(ServerLifetime, WaitsForClientsThatSlippedIn) {
    ServerLifetime lifetime(kShort);
    lifetime.AddHold();
    std::thread client([&] { lifetime.RemoveHold(); });
    lifetime.WaitUntilReleased(std::chrono::minutes(1));
    client.join();
    lifetime.AddHold();
    lifetime.WaitUntilReleased(milliseconds(10));
}

}  // namespace
}  // namespace toast
