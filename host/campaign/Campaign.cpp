#include "host/campaign/Campaign.h"

#include "host/campaign/BrokenRule.h"
#include "host/campaign/CurrentTrial.h"
#include "host/campaign/Trial.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace campaign {
namespace {

// Takes the steps of a trial's first update, and the page operations of its flash.
class CatalogueMaker final : public Trial::Audience {
  public:
    void Attach(const Trial& trial) { trial_ = &trial; }

    void OnUpdate(std::size_t, unsigned) override {}
    void OnUpdateEnd(const UpdateEnd&) override {}
    void OnBroken(bool, std::string_view) override {}
    void OnStep(const std::string&) override {
        ++steps_;
        if (steps_ == 2) {
            catalogue_.AddPages(trial_->Camera().FlashOperations());
        }
    }
    void OnCrossing(const Crossing& crossing) override {
        if (steps_ == 1) {
            catalogue_.AddStep(crossing);
        }
    }

    [[nodiscard]] const FaultCatalogue& Catalogue() const { return catalogue_; }

  private:
    const Trial* trial_ = nullptr;
    int steps_ = 0;  // the first begins the update, the second ends it
    FaultCatalogue catalogue_;
};

// 0: none.
void ChooseOneIn(unsigned oneIn, TrialSet& set, std::uint64_t seed) {
    set.Choose(oneIn == 0 ? 0 : set.Total() / oneIn, seed);
}

// What a stale last error makes another thing of.
std::vector<lab::Fault> ShortDescriptorsOf(std::vector<lab::Fault> faults) {
    std::erase_if(faults, [](const lab::Fault& fault) {
        return fault.where != lab::Fault::Where::GetDescriptor || fault.what != lab::Fault::What::ShortReply;
    });
    return faults;
}

void AddSingles(Campaign& campaign, const Kind& kind, const std::vector<lab::Fault>& faults,
                const CampaignSettings& settings) {
    const auto add = [&](TrialSet::Faults which, const std::vector<lab::Fault>& striking,
                         TrialSet::Begin begin) {
        campaign.sets.emplace_back(kind, which, striking, settings.imageSize, settings.imageSeed, begin);
    };
    add(TrialSet::Faults::None, faults, TrialSet::Begin::AsEver);
    add(TrialSet::Faults::One, faults, TrialSet::Begin::AsEver);
    add(TrialSet::Faults::One, faults, TrialSet::Begin::Again);
    add(TrialSet::Faults::One, ShortDescriptorsOf(faults), TrialSet::Begin::Stale);
}

void AddPairs(Campaign& campaign, const Kind& kind, const std::vector<lab::Fault>& faults,
              const CampaignSettings& settings) {
    using Faults = TrialSet::Faults;
    const bool isFirst = &kind == Kinds().data();
    TrialSet same(kind, Faults::TwoInOneUpdate, faults, settings.imageSize, settings.imageSeed);
    TrialSet next(kind, Faults::OneInEachOfTwo, faults, settings.imageSize, settings.imageSeed);
    if (isFirst && settings.pairs) {
        // Of both sets in the relation of their sizes.
        const std::size_t ofSame = *settings.pairs * same.Total() / (same.Total() + next.Total());
        same.Choose(ofSame, settings.seed);
        next.Choose(*settings.pairs - ofSame, settings.seed);
    } else if (!isFirst) {
        ChooseOneIn(settings.oneInOther, same, settings.seed);
        ChooseOneIn(settings.oneInOther, next, settings.seed);
    }
    TrialSet sameAgain(kind, Faults::TwoInOneUpdate, faults, settings.imageSize, settings.imageSeed,
                       TrialSet::Begin::Again);
    TrialSet nextAgain(kind, Faults::OneInEachOfTwo, faults, settings.imageSize, settings.imageSeed,
                       TrialSet::Begin::Again);
    const unsigned oneIn = isFirst ? settings.oneInAgain : settings.oneInOther * settings.oneInAgain;
    ChooseOneIn(settings.pairs ? 0 : oneIn, sameAgain, settings.seed);
    ChooseOneIn(settings.pairs ? 0 : oneIn, nextAgain, settings.seed);
    for (const TrialSet& set : {same, next, sameAgain, nextAgain}) {
        if (set.Size() != 0) {
            campaign.sets.push_back(set);
        }
    }
}

}  // namespace

FaultCatalogue CatalogueOf(const Kind& kind, const CampaignSettings& settings) {
    const UpdateEnd& faultless = FaultlessEnd(kind, settings.imageSize);
    CatalogueMaker maker;
    const TrialPlan plan{.kind = &kind, .imageSize = settings.imageSize, .seed = settings.imageSeed};
    CurrentTrial::Set(IdOf(plan));
    Trial trial(plan, &faultless, &maker);
    maker.Attach(trial);
    const TrialEnd end = trial.Run();
    if (!end.complaint.empty()) {
        throw BrokenRoad(IdOf(plan), end.complaint);
    }
    return maker.Catalogue();
}

Campaign MakeCampaign(const CampaignSettings& settings) {
    Campaign campaign;
    for (const Kind& kind : Kinds()) {
        const FaultCatalogue catalogue = CatalogueOf(kind, settings);
        campaign.roads.push_back({.kind = &kind,
                                  .steps = catalogue.Steps(),
                                  .repeats = catalogue.Repeats(),
                                  .forgotten = catalogue.Forgotten(),
                                  .faults = catalogue.Faults().size()});
        AddSingles(campaign, kind, catalogue.Faults(), settings);
        AddPairs(campaign, kind, catalogue.Faults(), settings);
    }
    return campaign;
}

}  // namespace campaign
