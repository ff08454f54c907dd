#pragma once

#include "host/campaign/FaultCatalogue.h"
#include "host/campaign/Kind.h"
#include "host/campaign/TrialSet.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace campaign {

// How much of everything is tried.
struct CampaignSettings {
    std::size_t imageSize = 2500;
    unsigned imageSeed = 1;
    std::uint64_t seed = 1;  // chooses where not all is tried
    // Of the KV400's pairs; none: all.
    std::optional<std::size_t> pairs = {};
    // Of each other camera's pairs one in so many; 0: none.
    unsigned oneInOther = 10;
    // Of the KV400's pairs one in so many once more, with a camera that arrives again; of the others' pairs
    // one in so many of those that are tried. None when not all of the KV400's are tried.
    unsigned oneInAgain = 10;
};

// All that is tried: the road without a fault, every single fault of every camera, and pairs.
struct Campaign {
    struct Road {
        const Kind* kind;
        std::size_t steps;      // that the service takes with a faultless camera
        std::size_t repeats;    // of those: looks that are like others, which stand for them
        std::size_t forgotten;  // faults that would strike at those
        std::size_t faults;
    };

    std::vector<Road> roads = {};
    std::vector<TrialSet> sets = {};
};

// What can strike an update of a faultless camera of the kind. Not to be called while there is a trial.
// Throws BrokenRoad when not even that update is as it should be.
[[nodiscard]] FaultCatalogue CatalogueOf(const Kind& kind, const CampaignSettings& settings);

// Nor this.
[[nodiscard]] Campaign MakeCampaign(const CampaignSettings& settings);

}  // namespace campaign
