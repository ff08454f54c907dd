#include "host/campaign/Allowances.h"
#include "host/campaign/Campaign.h"
#include "host/campaign/Tally.h"
#include "host/campaign/Transcript.h"
#include "host/campaign/Trial.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace campaign {
namespace {

using How = UpdateEnd::How;

TrialEnd RunTrial(const std::string& id) {
    const auto plan = PlanOf(id);
    EXPECT_TRUE(plan) << id;
    const UpdateEnd& faultless = FaultlessEnd(*plan->kind, plan->imageSize);
    return Trial(*plan, &faultless).Run();
}

// How each update of the camera ended, the good one last.
std::string Ends(const std::string& id) {
    const TrialEnd end = RunTrial(id);
    EXPECT_EQ(end.complaint, "") << id;
    std::string words;
    for (const UpdateEnd& update : end.updates) {
        words += (words.empty() ? "" : "; ") + InWords(update);
    }
    return words;
}

TEST(Trial, WithoutAFaultUpdatesWhatCanBeUpdated) {
    EXPECT_EQ(Ends("kv400.2500x1"), "updated, image; updated, image");
    EXPECT_EQ(Ends("tolerant.2500x1"), "failed, image; failed, image");
    EXPECT_EQ(Ends("strict.2500x1"), "failed, old; failed, old");
}

// A camera of each kind, as it comes: the flash that its update leaves, and what the service makes of it.
TEST(Trial, WithoutAFaultEveryKindEndsAsItsKindDoes) {
    const std::map<std::string_view, std::string> ends{{"kv400", "updated, image"},
                                                       {"strict", "failed, old"},
                                                       {"lenient", "failed, old"},
                                                       {"synchronous", "failed, old"},
                                                       {"busy-first", "updated, image"},
                                                       {"resets-at-detach", "failed, old"},
                                                       {"stays-in-dfu-mode", "failed, old"},
                                                       {"serves-uploads", "failed, old"},
                                                       {"drops-blocks", "failed, old"},
                                                       {"tolerant", "failed, image"},
                                                       {"addressed-flash", "updated, image"},
                                                       {"forgetful", "updated, image"},
                                                       {"behind-hid", "failed, old"},
                                                       {"two-banks", "updated, image"},
                                                       {"wide-pages", "updated, image"},
                                                       {"overwrites", "updated, image"},
                                                       {"first-page", "updated, image"},
                                                       {"first-page-of-two-banks", "updated, image"}};
    ASSERT_EQ(Kinds().size(), ends.size());
    for (const Kind& kind : Kinds()) {
        const UpdateEnd& end = FaultlessEnd(kind, 2500);
        EXPECT_EQ(InWords(end), ends.at(kind.name)) << kind.name;
    }
}

TEST(Trial, ALostAnswerEndsTheUpdateThoughTheBlockIsTaken) {
    EXPECT_EQ(Ends("two-banks.2500x1.1dn1-time-after"), "failed, old; updated, image");
    EXPECT_EQ(Ends("kv400.2500x1.1dn3-time-after"), "updated, image; updated, image");
}

// A block of which the camera has taken less than goes up to the version.
TEST(Trial, HalfAnImageWithoutAVersionIsNotAskedAbout) {
    const std::string id = "first-page-of-two-banks.2500x1.1dn0-pull-mid257";
    EXPECT_EQ(Ends(id), "failed, wrong; not begun, wrong");
    const std::vector<std::size_t> allowed{kHalfAnImageIsStarted, kVersionIsMissing};
    EXPECT_EQ(RunTrial(id).allowances, allowed);
}

TEST(Trial, PowerThatGoesAtAPageLeavesWhatThePagesHold) {
    EXPECT_EQ(Ends("kv400.2500x1.1fe1-pull-mid"), "failed, none; failed, none");
    EXPECT_EQ(Ends("two-banks.2500x1.1fw3-pull-mid"), "failed, old; updated, image");
    EXPECT_EQ(Ends("two-banks.2500x1.1fw3-pull-after"), "failed, image; updated, image");
    // SET_INTERFACE clears its error.
    EXPECT_EQ(Ends("forgetful.2500x1.1fe1-pull-mid"), "failed, none; updated, image");
}

TEST(Trial, TheSecondFaultMayStrikeInTheNextUpdate) {
    EXPECT_EQ(Ends("two-banks.2500x1.1dn0-pull.2gs9-time"), "failed, old; updated, image; updated, image");
}

TEST(Trial, HalfAnImageThatIsStartedIsAllowedToABootLoaderThatKnowsNoBetter) {
    const TrialEnd end = RunTrial("first-page.2500x1.1dn2-pull");
    EXPECT_EQ(end.complaint, "");
    EXPECT_TRUE(end.updates[0].verdict.IsWrong());
    EXPECT_EQ(end.allowances, (std::vector<std::size_t>{kHalfAnImageIsStarted, kVersionDecides}));
}

TEST(Trial, AStateThatIsToldFalselyIsBelieved) {
    const TrialEnd end = RunTrial("kv400.2500x1.1dn3-keep.1gs6-state8");
    EXPECT_EQ(end.complaint, "");
    EXPECT_EQ(InWords(end.updates[0]), "updated, none");
    EXPECT_EQ(end.allowances, std::vector<std::size_t>{kStateIsBelieved});
}

TEST(Trial, ACameraThatArrivesAgainIsMetAsItWasLeft) {
    // In dfuDNLOAD-IDLE or dfuERROR it takes no new download; the power that goes then ends both.
    EXPECT_EQ(Ends("two-banks.2500x1.1dn1-time-after.2r"), "failed, old; failed, old; updated, image");
    EXPECT_EQ(Ends("two-banks.2500x1.1dn1-stall.2r"), "failed, old; failed, old; updated, image");
    // SET_INTERFACE lets it forget, and put back what it had overwritten.
    EXPECT_EQ(Ends("forgetful.2500x1.1dn1-time-after.2r"), "failed, none; updated, image; updated, image");
    EXPECT_EQ(Ends("forgetful.2500x1.1dn1-time-after.2ge0-time.2r"),
              "failed, none; failed, old; updated, image");
    EXPECT_EQ(Ends("overwrites.2500x1.1dn1-time-after.2ge0-time.2r"),
              "failed, none; failed, none; updated, image");
    // It has reset itself, and runs.
    EXPECT_EQ(Ends("kv400.2500x1.1gs9-time-after.2r"), "updated, image; updated, image; updated, image");
}

TEST(Trial, AStaleErrorMakesAShortDescriptorOneThatIsNotRead) {
    EXPECT_EQ(Ends("kv400.2500x1.1gd0-short17"), "updated, image; updated, image");
    EXPECT_EQ(Ends("kv400.2500x1.1gd0-short17.1s"), "not opened, old; updated, image");
}

TEST(Trial, WidePagesAreErasedMoreOften) {
    const auto operations = [](const char* kind) {
        const FaultCatalogue catalogue = CatalogueOf(*FindKind(kind), {});
        return std::ranges::count(catalogue.Faults(), lab::Fault::Where::FlashErase, &lab::Fault::where);
    };
    EXPECT_EQ(operations("kv400"), 2 * 4);
    EXPECT_EQ(operations("wide-pages"), 2 * 6);
}

TEST(Trial, CountsTheFaultsThatStrike) {
    EXPECT_EQ(RunTrial("kv400.2500x1.1gs0-time.1gs9-time").updates[0].faultsMet, 1U);
    // One hides the other.
    EXPECT_EQ(RunTrial("kv400.2500x1.1gs0-time.1gs0-stall").updates[0].faultsMet, 1U);
    EXPECT_EQ(RunTrial("kv400.2500x1.1gs0-state2.1gs0-short4").updates[0].faultsMet, 1U);
    EXPECT_EQ(RunTrial("kv400.2500x1.1gs0-state2.1gs0-poll5").updates[0].faultsMet, 2U);
    EXPECT_EQ(RunTrial("kv400.2500x1.1cw0-stall.1cr0-stall").updates[0].faultsMet, 2U);
}

TEST(Trial, HasTheSameTranscriptEachTime) {
    const auto plan = PlanOf("two-banks.2500x1.1gs1-time.2fw2-pull-mid");
    std::string first;
    for (int time = 0; time < 50; ++time) {
        std::ostringstream lines;
        Transcript transcript(lines);
        static_cast<void>(Trial(*plan, &FaultlessEnd(*plan->kind, plan->imageSize), &transcript).Run());
        first = first.empty() ? lines.str() : first;
        ASSERT_EQ(lines.str(), first);
    }
    EXPECT_NE(first.find(R"({"event":"step","text":"update 2"})"), std::string::npos);
    EXPECT_NE(first.find(R"("setup":"21 01 00 00 00 00 00 04")"), std::string::npos);
}

TEST(Campaign, TriesEveryFaultOfTheRoadOfAKv400) {
    const FaultCatalogue catalogue = CatalogueOf(*FindKind("kv400"), {});
    // Version and switch, four to open it, four before the blocks, three blocks with two looks each, the
    // empty one, and four looks behind it.
    EXPECT_EQ(catalogue.Steps(), 4U + 4 + 4 + 9 + 1 + 4);
    EXPECT_EQ(catalogue.Repeats(), 0U);
    EXPECT_EQ(catalogue.Faults().size(), 338U);
}

TEST(Campaign, LetsTheFirstTwoAndTheLastOfALongWaitStandForAll) {
    const FaultCatalogue catalogue = CatalogueOf(*FindKind("tolerant"), {});
    EXPECT_EQ(catalogue.Steps(), 172U);
    EXPECT_EQ(catalogue.Repeats(), 145U);
    EXPECT_EQ(catalogue.Faults().size(), 369U);
}

TEST(Campaign, HasAllPairsOfTheKv400AndATenthOfTheOthers) {
    const Campaign campaign = MakeCampaign({});
    EXPECT_EQ(campaign.roads.size(), Kinds().size());
    EXPECT_EQ(campaign.sets.size(), 8 * Kinds().size());
    EXPECT_EQ(campaign.sets[4].Size() + campaign.sets[5].Size(), 171'197U);
    EXPECT_EQ(campaign.sets[6].Size(), campaign.sets[6].Total() / 10);
    EXPECT_EQ(campaign.sets[12].Size(), campaign.sets[12].Total() / 10);
    EXPECT_EQ(campaign.sets[14].Size(), campaign.sets[14].Total() / 100);
}

TEST(Campaign, HasAsManyPairsAsAreAskedFor) {
    const Campaign campaign = MakeCampaign({.pairs = 5000, .oneInOther = 0});
    EXPECT_EQ(campaign.sets.size(), 4 * Kinds().size() + 2);
    EXPECT_EQ(campaign.sets[4].Size() + campaign.sets[5].Size(), 5000U);
}

}  // namespace
}  // namespace campaign
