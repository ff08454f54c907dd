#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "lab/rig/bus/Rest.h"
#include "tests/lab/rig/bus/BusFixture.h"

using namespace lab::rig;
using namespace std::chrono_literals;

namespace {

using Steady = std::chrono::steady_clock;

class RestTest : public BusFixture {
  protected:
    void SetUp() override { BeginSkippingWaits(QuickCamera()); }

    // A thread that sleeps so long again and again, as often as told, and says when it is done.
    std::future<void> SleepAgainAndAgain(std::chrono::milliseconds time, unsigned times) {
        return std::async(std::launch::async, [this, time, times] {
            for (unsigned sleep = 0; sleep < times; ++sleep) {
                rest_->Sleep(time);
            }
        });
    }

    std::unique_ptr<Rest> MakeRest() { return std::make_unique<Rest>(*bus_); }

    std::unique_ptr<Rest> rest_;
};

}  // namespace

TEST_F(RestTest, LetsASleepTakeItsTimeWhenTheMachineDoesNotRest) {
    rest_ = MakeRest();
    const auto begin = Steady::now();
    rest_->Sleep(50ms);
    EXPECT_GE(Steady::now() - begin, 50ms);
}

TEST_F(RestTest, TakesEverySleepOfADayAndMovesTheClock) {
    rest_ = MakeRest();
    const std::uint64_t before = bus_->ClockMs();
    const auto sleeper = SleepAgainAndAgain(1000ms, 86'401);
    const auto begin = Steady::now();
    const std::uint64_t sleeps = rest_->Pass(24h);
    EXPECT_LT(Steady::now() - begin, 20s);
    // The first may have begun before the rest, and then ends within it, too.
    EXPECT_EQ(sleeps, 86'400U);
    EXPECT_GE(bus_->ClockMs() - before, 86'400'000U);
    EXPECT_LT(bus_->ClockMs() - before, 86'430'000U);
    sleeper.wait();
}

// As it happens to a thread of a machine that is busy with something else.
TEST_F(RestTest, LeavesOutNoSleepOfAThreadThatIsHeldUpBetweenTwo) {
    rest_ = MakeRest();
    const auto sleeper = std::async(std::launch::async, [this] {
        rest_->Sleep(1000ms);
        std::this_thread::sleep_for(1500ms);
        for (unsigned sleep = 0; sleep < 10; ++sleep) {
            rest_->Sleep(1000ms);
        }
    });
    EXPECT_EQ(rest_->Pass(10s), 10U);
    sleeper.wait();
}

TEST_F(RestTest, LetsTheRestOfASleepTakeItsTimeBehindIt) {
    rest_ = MakeRest();
    const auto sleeper = SleepAgainAndAgain(10'200ms, 1);
    EXPECT_EQ(rest_->Pass(10s), 0U);
    EXPECT_EQ(sleeper.wait_for(0ms), std::future_status::timeout);
    EXPECT_EQ(sleeper.wait_for(5s), std::future_status::ready);
}

TEST_F(RestTest, PassesAtOnceWhereNobodySleeps) {
    rest_ = MakeRest();
    const std::uint64_t before = bus_->ClockMs();
    EXPECT_EQ(rest_->Pass(24h * 365), 0U);
    EXPECT_GE(bus_->ClockMs() - before, 31'536'000'000U);
}

TEST_F(RestTest, MakesHappenWhatIsDueInIt) {
    rest_ = MakeRest();
    bus_->Plug(0);
    const auto source = bus_->FindSource(links_.SensorCamera());
    ASSERT_TRUE(source.has_value());
    EXPECT_EQ(SendDfuModeCommand(*source).end, lab::TransferEnd::Ok);
    static_cast<void>(rest_->Pass(1h));
    EXPECT_TRUE(bus_->FindDfuDevice(links_.DfuUsb()).has_value());
}
