#pragma once

#include "host/campaign/Kind.h"
#include "host/campaign/SeededChoice.h"
#include "host/campaign/TrialPlan.h"
#include "lab/camera/Fault.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace campaign {

// The trials of one kind of camera that have something in common: no fault, one, two in the first update, or
// one in the first and one in the second. All of them, or as many as a seed chooses; each has a number.
class TrialSet {
  public:
    enum class Faults { None, One, TwoInOneUpdate, OneInEachOfTwo };

    // `faults` are those of the kind's catalogue; the images have this size and seed.
    TrialSet(const Kind& kind, Faults which, std::vector<lab::Fault> faults, std::size_t imageSize,
             unsigned imageSeed);

    // Only so many, chosen by the seed; all when there are no more.
    void Choose(std::size_t count, std::uint64_t seed);

    [[nodiscard]] const Kind& TheKind() const { return kind_; }
    // "no fault", "one fault", "two in one update", "one in each of two".
    [[nodiscard]] std::string_view Name() const;
    // Of all trials, and of those chosen.
    [[nodiscard]] std::size_t Total() const { return choice_.Total(); }
    [[nodiscard]] std::size_t Size() const { return choice_.Size(); }
    // `number` is below Size().
    [[nodiscard]] TrialPlan Plan(std::size_t number) const;

  private:
    const Kind& kind_;
    Faults which_;
    std::vector<lab::Fault> faults_;
    std::size_t imageSize_;
    unsigned imageSeed_;
    SeededChoice choice_;
};

}  // namespace campaign
