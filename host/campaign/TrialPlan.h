#pragma once

#include "host/campaign/Kind.h"
#include "lab/camera/Fault.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace campaign {

// A fault and the update of the camera, counted from 1, in which it strikes.
struct PlannedFault {
    unsigned update = 1;
    lab::Fault fault;
};

// How an update of the camera, counted from 1, begins when it is not as ever.
struct Circumstance {
    enum class What {
        ArrivesAgain,  // the camera's interface arrives anew, and the camera has not lost power meanwhile
        StaleError,    // a call that failed earlier has left its last error
    };

    unsigned update = 1;
    What what = What::ArrivesAgain;
};

// All that a trial depends on.
struct TrialPlan {
    const Kind* kind = nullptr;
    std::size_t imageSize = 0;
    unsigned seed = 0;  // of the images
    std::vector<PlannedFault> faults = {};
    std::vector<Circumstance> circumstances = {};

    // The update behind which nothing is out of the ordinary any more.
    [[nodiscard]] unsigned LastUpdate() const;
    [[nodiscard]] bool Has(unsigned update, Circumstance::What what) const;
    // The faults of one update.
    [[nodiscard]] std::vector<lab::Fault> FaultsOf(unsigned update) const;
    // What is downloaded in an update: 5.10.3.0 in the first, and a later version with each.
    [[nodiscard]] std::vector<std::uint8_t> Image(unsigned update) const;
};

inline constexpr std::size_t kSmallestImage = 402;  // bytes: with a version

// A plan as a text without blanks, "kv400.2500x1.1gs3-time-after.2fw7-pull-mid", and back. The text's parts:
// the kind; the image's size and seed; then each fault: the update, the place and how many of its kind come
// through, what happens with its value, the moment when it is not before, how many it strikes when that is
// not one; then each circumstance: the update, and "r" when the camera arrives again, "s" for a stale error.
[[nodiscard]] std::string IdOf(const TrialPlan& plan);
// Empty when the text is no id.
[[nodiscard]] std::optional<TrialPlan> PlanOf(std::string_view id);
// A fault, or a circumstance, for a person to read.
[[nodiscard]] std::string InWords(const PlannedFault& planned);
[[nodiscard]] std::string InWords(const Circumstance& circumstance);

}  // namespace campaign
