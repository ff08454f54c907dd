#include "host/campaign/Campaign.h"

#include "host/campaign/BrokenRule.h"
#include "host/campaign/CurrentTrial.h"
#include "host/campaign/Trial.h"

#include <algorithm>

namespace campaign {
namespace {

// Takes the steps of a trial's first update, and the page operations of its flash.
class CatalogueMaker final : public Trial::Audience {
  public:
    void Attach(const Trial& trial) { trial_ = &trial; }

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
        throw BrokenRule(IdOf(plan) + ": " + end.complaint);
    }
    return maker.Catalogue();
}

Campaign MakeCampaign(const CampaignSettings& settings) {
    using Faults = TrialSet::Faults;
    Campaign campaign;
    for (const Kind& kind : Kinds()) {
        const bool isFirst = &kind == Kinds().data();
        const FaultCatalogue catalogue = CatalogueOf(kind, settings);
        const std::vector<lab::Fault>& faults = catalogue.Faults();
        campaign.roads.push_back({.kind = &kind,
                                  .steps = catalogue.Steps(),
                                  .repeats = catalogue.Repeats(),
                                  .faults = faults.size()});
        campaign.sets.emplace_back(kind, Faults::None, faults, settings.imageSize, settings.imageSeed);
        campaign.sets.emplace_back(kind, Faults::One, faults, settings.imageSize, settings.imageSeed);
        TrialSet same(kind, Faults::TwoInOneUpdate, faults, settings.imageSize, settings.imageSeed);
        TrialSet next(kind, Faults::OneInEachOfTwo, faults, settings.imageSize, settings.imageSeed);
        if (isFirst && settings.pairs) {
            // Of both sets in the relation of their sizes.
            const std::size_t ofSame = *settings.pairs * same.Total() / (same.Total() + next.Total());
            same.Choose(ofSame, settings.seed);
            next.Choose(*settings.pairs - ofSame, settings.seed);
        } else if (!isFirst) {
            for (TrialSet* const set : {&same, &next}) {
                set->Choose(settings.oneInOther == 0 ? 0 : set->Total() / settings.oneInOther, settings.seed);
            }
        }
        for (const TrialSet& set : {same, next}) {
            if (set.Size() != 0) {
                campaign.sets.push_back(set);
            }
        }
    }
    return campaign;
}

}  // namespace campaign
