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

// All that a trial depends on.
struct TrialPlan {
    const Kind* kind = nullptr;
    std::size_t imageSize = 0;
    unsigned seed = 0;  // of the images
    std::vector<PlannedFault> faults = {};

    // The update behind which nothing goes wrong any more.
    [[nodiscard]] unsigned LastUpdate() const;
    // The faults of one update.
    [[nodiscard]] std::vector<lab::Fault> FaultsOf(unsigned update) const;
    // What is downloaded in an update: 5.10.3.0 in the first, and a later version with each.
    [[nodiscard]] std::vector<std::uint8_t> Image(unsigned update) const;
};

inline constexpr std::size_t kSmallestImage = 402;  // bytes: with a version

// A plan as a text without blanks, "kv400.2500x1.1gs3-time-after.2fw7-pull-mid", and back. The text's parts:
// the kind; the image's size and seed; then each fault: the update, the place and how many of its kind come
// through, what happens with its value, the moment when it is not before, how many it strikes when that is
// not one.
[[nodiscard]] std::string IdOf(const TrialPlan& plan);
// Empty when the text is no id.
[[nodiscard]] std::optional<TrialPlan> PlanOf(std::string_view id);
// A fault for a person to read.
[[nodiscard]] std::string InWords(const PlannedFault& planned);

}  // namespace campaign
