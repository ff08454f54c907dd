#pragma once

#include "host/campaign/Kind.h"
#include "host/campaign/SeededChoice.h"
#include "host/campaign/TrialPlan.h"
#include "lab/camera/Fault.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace campaign {

// The trials of one kind of camera that have something in common: no fault, with images of several sizes,
// one, two in the first update, or one in the first and one in the second. All of them, or as many as a seed
// chooses; each has a number.
class TrialSet {
  public:
    enum class Faults { None, One, TwoInOneUpdate, OneInEachOfTwo };
    // How its updates begin.
    enum class Begin {
        AsEver,
        Again,  // the second update: the camera arrives again, and has not lost power
        Stale,  // the first: with a stale error
    };

    // `faults` are those of the kind's catalogue; the images have this size and seed.
    TrialSet(const Kind& kind, Faults which, std::vector<lab::Fault> faults, std::size_t imageSize,
             unsigned imageSeed, Begin begin = Begin::AsEver);

    // Only so many, chosen by the seed and for each kind and set anew; all when there are no more.
    void Choose(std::size_t count, std::uint64_t seed);

    [[nodiscard]] const Kind& TheKind() const { return kind_; }
    // "no fault", "one fault", "two in one update", "one in each of two".
    // Behind it ", arriving again" or ", with a stale error".
    [[nodiscard]] std::string Name() const;
    [[nodiscard]] Faults Which() const { return which_; }
    [[nodiscard]] Begin HowItBegins() const { return begin_; }
    // Of all trials, and of those chosen.
    [[nodiscard]] std::size_t Total() const { return choice_.Total(); }
    [[nodiscard]] std::size_t Size() const { return choice_.Size(); }
    // `number` is below Size().
    [[nodiscard]] TrialPlan Plan(std::size_t number) const;

  private:
    const Kind& kind_;
    Faults which_;
    Begin begin_;
    std::vector<lab::Fault> faults_;
    std::size_t imageSize_;
    unsigned imageSeed_;
    SeededChoice choice_;
};

}  // namespace campaign
