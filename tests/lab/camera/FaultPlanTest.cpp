#include "lab/camera/FaultPlan.h"

#include <gtest/gtest.h>

#include <vector>

namespace lab::test {
namespace {

constexpr Fault::Where kWhere = Fault::Where::GetStatus;

// Of two faults of the same GETSTATUS, the first of which is `first`: which strike, by their place.
std::vector<Fault::What> Striking(const Fault& first, const Fault& second) {
    FaultPlan plan({first, second});
    std::vector<Fault::What> whats;
    for (const Fault& fault : plan.Strike(kWhere)) {
        whats.push_back(fault.what);
    }
    EXPECT_EQ(plan.Met(), whats.size());
    return whats;
}

TEST(FaultPlan, OfTwoByWhichARequestFailsTheFirstStrikes) {
    EXPECT_EQ(Striking({.what = Fault::What::Timeout}, {.what = Fault::What::Stall}),
              std::vector{Fault::What::Timeout});
}

TEST(FaultPlan, NothingIsSeenOfAChangedAnswerThatDoesNotCome) {
    EXPECT_EQ(Striking({.what = Fault::What::State, .value = 2}, {.what = Fault::What::Stall}),
              std::vector{Fault::What::Stall});
}

TEST(FaultPlan, NothingIsSeenOfAChangeThatIsCutOff) {
    const Fault state{.what = Fault::What::State, .value = 2};
    EXPECT_EQ(Striking(state, {.what = Fault::What::ShortReply, .value = 4}),
              std::vector{Fault::What::ShortReply});
    EXPECT_EQ(Striking(state, {.what = Fault::What::ShortReply, .value = 5}),
              (std::vector{Fault::What::State, Fault::What::ShortReply}));
}

TEST(FaultPlan, OfTwoThatChangeTheSameTheFirstStrikes) {
    FaultPlan plan({{.what = Fault::What::State, .value = 2}, {.what = Fault::What::State, .value = 5}});
    const std::vector<Fault> striking = plan.Strike(kWhere);
    ASSERT_EQ(striking.size(), 1U);
    EXPECT_EQ(striking[0].value, 2U);
    EXPECT_EQ(plan.Met(), 1U);
}

TEST(FaultPlan, WhatChangesDifferentBytesStrikesTogether) {
    EXPECT_EQ(
        Striking({.what = Fault::What::Status, .value = 3}, {.what = Fault::What::PollTime, .value = 9}),
        (std::vector{Fault::What::Status, Fault::What::PollTime}));
}

TEST(FaultPlan, OneThatIsHiddenMayStrikeLater) {
    FaultPlan plan({{.what = Fault::What::Timeout}, {.what = Fault::What::Stall, .count = 2}});
    EXPECT_EQ(plan.Strike(kWhere).size(), 1U);
    EXPECT_EQ(plan.Met(), 1U);
    EXPECT_EQ(plan.Strike(kWhere).front().what, Fault::What::Stall);
    EXPECT_EQ(plan.Met(), 2U);
}

}  // namespace
}  // namespace lab::test
