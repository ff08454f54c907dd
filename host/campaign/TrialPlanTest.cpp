#include "host/campaign/TrialPlan.h"

#include <gtest/gtest.h>

#include <set>

namespace campaign {
namespace {

using lab::Fault;

TEST(TrialPlan, HasAnIdThatSaysEverything) {
    TrialPlan plan{.kind = FindKind("two-banks"), .imageSize = 2500, .seed = 7};
    EXPECT_EQ(IdOf(plan), "two-banks.2500x7");
    plan.faults = {
        {.update = 1, .fault = {.where = Fault::Where::GetStatus, .what = Fault::What::Timeout, .skip = 3}},
        {.update = 2,
         .fault = {.where = Fault::Where::FlashWrite,
                   .what = Fault::What::Unplug,
                   .skip = 7,
                   .moment = Fault::Moment::Middle}}};
    EXPECT_EQ(IdOf(plan), "two-banks.2500x7.1gs3-time.2fw7-pull-mid");
}

TEST(TrialPlan, IsReadFromItsId) {
    const auto plan = PlanOf("kv400.2500x1.1dn0-pull-mid100-for0.1gs2-state8.3ge1-keep.2cw0-time-after");
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->kind->name, "kv400");
    EXPECT_EQ(plan->imageSize, 2500U);
    EXPECT_EQ(plan->seed, 1U);
    ASSERT_EQ(plan->faults.size(), 4U);
    EXPECT_EQ(plan->LastUpdate(), 3U);
    const Fault& first = plan->faults[0].fault;
    EXPECT_EQ(first.where, Fault::Where::Dnload);
    EXPECT_EQ(first.what, Fault::What::Unplug);
    EXPECT_EQ(first.moment, Fault::Moment::Middle);
    EXPECT_EQ(first.value, 100U);
    EXPECT_EQ(first.count, 0U);
    EXPECT_EQ(plan->faults[1].fault.what, Fault::What::State);
    EXPECT_EQ(plan->faults[1].fault.value, 8U);
    EXPECT_EQ(plan->faults[2].fault.what, Fault::What::Stall);
    EXPECT_FALSE(plan->faults[2].fault.setsError);
    EXPECT_EQ(plan->FaultsOf(2).front().moment, Fault::Moment::After);
    EXPECT_EQ(plan->FaultsOf(1).size(), 2U);
}

TEST(TrialPlan, SaysHowAnUpdateBegins) {
    const auto plan = PlanOf("kv400.2500x1.1dn1-time-after.2r.1s");
    ASSERT_TRUE(plan);
    EXPECT_TRUE(plan->Has(2, Circumstance::What::ArrivesAgain));
    EXPECT_FALSE(plan->Has(1, Circumstance::What::ArrivesAgain));
    EXPECT_TRUE(plan->Has(1, Circumstance::What::StaleError));
    EXPECT_EQ(plan->LastUpdate(), 2U);
    EXPECT_EQ(IdOf(*plan), "kv400.2500x1.1dn1-time-after.2r.1s");
    EXPECT_EQ(InWords(plan->circumstances[0]), "update 2: the camera arrives again, and has not lost power");
    EXPECT_EQ(InWords(plan->circumstances[1]), "update 1: an earlier call has left its error");
}

TEST(TrialPlan, IsNotReadFromAnythingElse) {
    for (const char* const text : {"",
                                   "kv400",
                                   "kv400.",
                                   "kv500.2500x1",
                                   "kv400.2500",
                                   "kv400.2500x",
                                   "kv400.401x1",
                                   "kv400.9999999x1",
                                   "kv400.2500x1.",
                                   "kv400.2500x1.gs3-time",
                                   "kv400.2500x1.0gs3-time",
                                   "kv400.2500x1.1xx3-time",
                                   "kv400.2500x1.1gs-time",
                                   "kv400.2500x1.1gs3time",
                                   "kv400.2500x1.1gs3-tim",
                                   "kv400.2500x1.1gs3-state",
                                   "kv400.2500x1.1gs3-time-before",
                                   "kv400.2500x1.1gs3-time-for",
                                   "kv400.2500x1.1gs3-time-for1",
                                   "kv400.2500x1.1gs03-time",
                                   "kv400.02500x1",
                                   "kv400.2500x1.1gs3-time ",
                                   "kv400.2500x1.0r",
                                   "kv400.2500x1.10r",
                                   "kv400.2500x1.r",
                                   "kv400.2500x1.2r.1gs3-time",
                                   "kv400.2500x1.2rs",
                                   "KV400.2500x1"}) {
        EXPECT_FALSE(PlanOf(text)) << text;
    }
}

TEST(TrialPlan, IsToldInWords) {
    EXPECT_EQ(InWords({.update = 2,
                       .fault = {.where = Fault::Where::Dnload,
                                 .what = Fault::What::Unplug,
                                 .skip = 1,
                                 .moment = Fault::Moment::Middle}}),
              "update 2, number 1 of its kind: DNLOAD loses its camera, in the middle");
    EXPECT_EQ(InWords({.fault = {.where = Fault::Where::GetStatus,
                                 .what = Fault::What::Stall,
                                 .count = 0,
                                 .setsError = false}}),
              "update 1, number 0 of its kind: GETSTATUS is refused, and nothing changes, from there on");
}

TEST(TrialPlan, HasAnotherImageForEachUpdateAndSeed) {
    const TrialPlan one{.kind = FindKind("kv400"), .imageSize = 2500, .seed = 1};
    const TrialPlan other{.kind = FindKind("kv400"), .imageSize = 2500, .seed = 2};
    EXPECT_EQ(one.Image(1), one.Image(1));
    EXPECT_EQ(std::set({one.Image(1), one.Image(2), other.Image(1), other.Image(2)}).size(), 4U);
    EXPECT_EQ(one.Image(1)[398], 0);
    EXPECT_EQ(one.Image(1)[399], 3);
    EXPECT_EQ(one.Image(2)[399], 4);
    EXPECT_EQ(one.Image(2)[400], 10);
    EXPECT_EQ(one.Image(2)[401], 5);
}

TEST(Kind, HasTheNameOfEachPersonalityAndOfOtherFlashes) {
    EXPECT_EQ(Kinds().front().name, "kv400");
    EXPECT_EQ(Kinds().size(), lab::kPersonalities.size() + 5);
    EXPECT_EQ(SettingsOf(*FindKind("wide-pages")).pageSize, 1056U);
    EXPECT_FALSE(SettingsOf(*FindKind("overwrites")).traits->putsBack);
    EXPECT_TRUE(SettingsOf(*FindKind("two-banks")).hasTwoBanks);
    EXPECT_EQ(SettingsOf(*FindKind("first-page")).traits->bootCheck, lab::DfuTraits::BootCheck::FirstPage);
    EXPECT_EQ(FindKind("kv500"), nullptr);
}

}  // namespace
}  // namespace campaign
