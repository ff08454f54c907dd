#include "host/campaign/TrialSet.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace campaign {
namespace {

using Faults = TrialSet::Faults;

std::vector<lab::Fault> FaultsAt(unsigned count) {
    std::vector<lab::Fault> faults;
    for (unsigned skip = 0; skip < count; ++skip) {
        faults.push_back({.what = lab::Fault::What::Timeout, .skip = skip});
    }
    return faults;
}

TrialSet Make(Faults which, unsigned count) {
    return {*FindKind("kv400"), which, FaultsAt(count), 2500, 1};
}

std::set<std::string> IdsOf(const TrialSet& set) {
    std::set<std::string> ids;
    for (std::size_t number = 0; number < set.Size(); ++number) {
        ids.insert(IdOf(set.Plan(number)));
    }
    return ids;
}

TEST(TrialSet, HasImagesOfSeveralSizesWithoutAFault) {
    EXPECT_EQ(IdsOf(Make(Faults::None, 2)),
              (std::set<std::string>{"kv400.2500x1", "kv400.402x1", "kv400.1023x1", "kv400.1024x1",
                                     "kv400.1025x1", "kv400.2048x1"}));
}

TEST(TrialSet, HasEachFaultOnce) {
    EXPECT_EQ(IdsOf(Make(Faults::One, 2)),
              (std::set<std::string>{"kv400.2500x1.1gs0-time", "kv400.2500x1.1gs1-time"}));
}

TEST(TrialSet, BeginsItsUpdatesAsItsNameSays) {
    const TrialSet again(*FindKind("kv400"), Faults::One, FaultsAt(2), 2500, 1, TrialSet::Begin::Again);
    EXPECT_EQ(again.Name(), "one fault, arriving again");
    EXPECT_EQ(IdsOf(again),
              (std::set<std::string>{"kv400.2500x1.1gs0-time.2r", "kv400.2500x1.1gs1-time.2r"}));
    const TrialSet stale(*FindKind("kv400"), Faults::One, FaultsAt(1), 2500, 1, TrialSet::Begin::Stale);
    EXPECT_EQ(stale.Name(), "one fault, with a stale error");
    EXPECT_EQ(IdsOf(stale), std::set<std::string>{"kv400.2500x1.1gs0-time.1s"});
}

TEST(TrialSet, HasEachTwoFaultsOfOneUpdateOnce) {
    EXPECT_EQ(IdsOf(Make(Faults::TwoInOneUpdate, 3)),
              (std::set<std::string>{"kv400.2500x1.1gs0-time.1gs1-time", "kv400.2500x1.1gs0-time.1gs2-time",
                                     "kv400.2500x1.1gs1-time.1gs2-time"}));
    EXPECT_EQ(IdsOf(Make(Faults::TwoInOneUpdate, 40)).size(), 780U);
    EXPECT_EQ(Make(Faults::TwoInOneUpdate, 1).Size(), 0U);
    EXPECT_EQ(Make(Faults::TwoInOneUpdate, 0).Size(), 0U);
}

TEST(TrialSet, HasEachFaultBehindEach) {
    const std::set<std::string> ids = IdsOf(Make(Faults::OneInEachOfTwo, 7));
    EXPECT_EQ(ids.size(), 49U);
    EXPECT_TRUE(ids.contains("kv400.2500x1.1gs6-time.2gs6-time"));
    EXPECT_TRUE(ids.contains("kv400.2500x1.1gs6-time.2gs0-time"));
}

TEST(TrialSet, ChoosesSoManyByASeedAndNoneTwice) {
    std::set<std::set<std::string>> choices;
    for (const std::uint64_t seed : {1U, 2U, 3U}) {
        TrialSet set = Make(Faults::OneInEachOfTwo, 30);
        set.Choose(90, seed);
        EXPECT_EQ(set.Size(), 90U);
        EXPECT_EQ(set.Total(), 900U);
        EXPECT_EQ(IdsOf(set).size(), 90U);
        choices.insert(IdsOf(set));
        TrialSet again = Make(Faults::OneInEachOfTwo, 30);
        again.Choose(90, seed);
        EXPECT_EQ(IdsOf(again), IdsOf(set));
    }
    EXPECT_EQ(choices.size(), 3U);
}

TEST(TrialSet, ChoosesOthersForAnotherKindAndAnotherSet) {
    const auto chosen = [](const char* kind, Faults which) {
        TrialSet set(*FindKind(kind), which, FaultsAt(30), 2500, 1);
        set.Choose(40, 1);
        std::set<std::string> faults;
        for (const std::string& id : IdsOf(set)) {
            faults.insert(id.substr(id.find(".1gs")));
        }
        return faults;
    };
    EXPECT_EQ(chosen("kv400", Faults::OneInEachOfTwo), chosen("kv400", Faults::OneInEachOfTwo));
    EXPECT_NE(chosen("kv400", Faults::OneInEachOfTwo), chosen("two-banks", Faults::OneInEachOfTwo));
}

TEST(TrialSet, HasAllWhenNoFewerAreWanted) {
    TrialSet set = Make(Faults::One, 5);
    set.Choose(5, 1);
    EXPECT_EQ(IdsOf(set).size(), 5U);
    set.Choose(500, 1);
    EXPECT_EQ(set.Size(), 5U);
    set.Choose(0, 1);
    EXPECT_EQ(set.Size(), 0U);
}

}  // namespace
}  // namespace campaign
