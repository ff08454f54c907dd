#include "host/campaign/AnyFault.h"
#include "host/campaign/CameraBus.h"
#include "host/campaign/Kind.h"
#include "host/campaign/ServiceRoad.h"
#include "host/campaign/TrialPlan.h"
#include "host/campaign/VirtualTime.h"
#include "host/compat/Events.h"

#include <gtest/gtest.h>
#include <sanitizer/allocator_interface.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

namespace campaign {
namespace {

constexpr ULONGLONG kYearMs = ULONGLONG{365} * 24 * 60 * 60 * 1000;
constexpr unsigned kArrivals = 1000;
constexpr std::size_t kImageSize = 1500;

struct Ends {
    unsigned updated = 0;
    unsigned failed = 0;
    unsigned others = 0;  // unknown, up to date, not answered, gone, not opened
};

// The portable parts of one process of the service, and the cameras that come to it over the years.
class LongLife final : public ICrossingListener {
  public:
    LongLife() : camera_(SettingsOf(Kinds().front())), bus_(time_, *this, {&camera_}), road_(bus_, time_) {}

    void OnCrossing(const Crossing& crossing) override { road_.OnCrossing(crossing); }

    // Every time the same year: 1,000 cameras of all kinds, each new, most of them with a fault.
    Ends PassAYear() {
        std::mt19937 random(1);
        Ends ends;
        std::vector<ULONGLONG> arrivals(kArrivals);
        for (ULONGLONG& arrival : arrivals) {
            arrival = std::uniform_int_distribution<ULONGLONG>(0, kYearMs)(random);
        }
        std::ranges::sort(arrivals);
        ULONGLONG passed = 0;
        for (const ULONGLONG arrival : arrivals) {
            time_.Advance(arrival - passed);
            passed = arrival;
            Receive(random, ends);
        }
        time_.Advance(kYearMs - passed);
        return ends;
    }

    [[nodiscard]] ULONGLONG Now() const { return time_.Now(); }
    [[nodiscard]] std::size_t OpenDevices() const { return bus_.OpenHandles(); }

  private:
    static lab::Fault FaultByChance(std::mt19937& random) {
        FaultNumbers numbers;
        numbers.where = random() % lab::Fault::kPlaces;
        numbers.what = random() % lab::Fault::kKinds;
        numbers.skip = random() % 6;
        numbers.count = random() % 3;
        numbers.value = random() % 16;
        numbers.how = random() % 8;
        return AnyFault(numbers);
    }

    void Receive(std::mt19937& random, Ends& ends) {
        const TrialPlan plan{.kind = &Kinds()[random() % Kinds().size()], .imageSize = kImageSize, .seed = 1};
        camera_ = lab::VirtualCamera(SettingsOf(*plan.kind));
        camera_.SetFaults({FaultByChance(random), FaultByChance(random)});
        const bool isAnswered = random() % 8 != 0;
        camera_.Plug(time_.Now());
        const std::optional<std::array<std::uint8_t, 4>> version = road_.ReadVersion(0);
        if (version && isAnswered) {
            road_.SwitchToDfuMode(0);
            Settle();
            const ServiceRoad::DfuPass pass = road_.Download(plan.Image(1));
            ++(!pass.isOpened ? ends.others : FAILED(pass.result) ? ends.failed : ends.updated);
        } else {
            ++ends.others;
        }
        Settle();
        camera_.Unplug();
        // As at every arrival of a USB device: none of it is a camera.
        EXPECT_FALSE(road_.Download(plan.Image(1)).isPresent);
        camera_ = lab::VirtualCamera(SettingsOf(Kinds().front()));
    }

    void Settle() {
        constexpr int kMostEvents = 20;
        for (int event = 0; event < kMostEvents && camera_.NextDeadline(); ++event) {
            const std::uint64_t due = *camera_.NextDeadline();
            time_.Advance(due - std::min<std::uint64_t>(due, time_.Now()));
        }
    }

    VirtualTime time_;
    lab::VirtualCamera camera_;
    CameraBus bus_;
    ServiceRoad road_;
};

// What grows to its size once, a text's memory for one, has done so in the first year.
TEST(LongLife, ASecondYearLikeTheFirstLeavesNothingMoreBehind) {
    LongLife life;
    const Ends first = life.PassAYear();
    const std::size_t bytes = __sanitizer_get_current_allocated_bytes();
    const std::size_t handles = host::Events::OfProcess().Handles();
    const Ends second = life.PassAYear();
    EXPECT_EQ(__sanitizer_get_current_allocated_bytes(), bytes);
    EXPECT_EQ(host::Events::OfProcess().Handles(), handles);
    EXPECT_EQ(life.OpenDevices(), 0U);
    EXPECT_GE(life.Now(), 2 * kYearMs);

    EXPECT_EQ(second.updated, first.updated);
    EXPECT_EQ(second.failed, first.failed);
    EXPECT_EQ(first.updated + first.failed + first.others, kArrivals);
    EXPECT_GE(first.updated, 100U);
    EXPECT_GE(first.failed, 100U);
    EXPECT_GE(first.others, 100U);
}

}  // namespace
}  // namespace campaign
