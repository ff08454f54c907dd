#include "host/campaign/TrialSet.h"

#include <utility>

namespace campaign {
namespace {

std::size_t TotalOf(TrialSet::Faults which, std::size_t faults) {
    switch (which) {
        case TrialSet::Faults::None:
            return 1;
        case TrialSet::Faults::One:
            return faults;
        case TrialSet::Faults::TwoInOneUpdate:
            return faults * (faults - (faults == 0 ? 0 : 1)) / 2;
        case TrialSet::Faults::OneInEachOfTwo:
            break;
    }
    return faults * faults;
}

// Two different ones of so many, for each number below half of their product.
std::pair<std::size_t, std::size_t> PairOf(std::size_t number, std::size_t count) {
    std::size_t first = 0;
    while (number >= count - 1 - first) {
        number -= count - 1 - first;
        ++first;
    }
    return {first, first + 1 + number};
}

}  // namespace

TrialSet::TrialSet(const Kind& kind, Faults which, std::vector<lab::Fault> faults, std::size_t imageSize,
                   unsigned imageSeed)
    : kind_(kind),
      which_(which),
      faults_(std::move(faults)),
      imageSize_(imageSize),
      imageSeed_(imageSeed),
      choice_(TotalOf(which, faults_.size()), TotalOf(which, faults_.size()), 0) {}

void TrialSet::Choose(std::size_t count, std::uint64_t seed) {
    choice_ = SeededChoice(choice_.Total(), count, seed);
}

std::string_view TrialSet::Name() const {
    switch (which_) {
        case Faults::None:
            return "no fault";
        case Faults::One:
            return "one fault";
        case Faults::TwoInOneUpdate:
            return "two in one update";
        case Faults::OneInEachOfTwo:
            break;
    }
    return "one in each of two";
}

TrialPlan TrialSet::Plan(std::size_t number) const {
    const std::size_t place = choice_.At(number);
    TrialPlan plan{.kind = &kind_, .imageSize = imageSize_, .seed = imageSeed_};
    switch (which_) {
        case Faults::None:
            break;
        case Faults::One:
            plan.faults = {{.update = 1, .fault = faults_[place]}};
            break;
        case Faults::TwoInOneUpdate: {
            const auto [first, second] = PairOf(place, faults_.size());
            plan.faults = {{.update = 1, .fault = faults_[first]}, {.update = 1, .fault = faults_[second]}};
            break;
        }
        case Faults::OneInEachOfTwo:
            plan.faults = {{.update = 1, .fault = faults_[place / faults_.size()]},
                           {.update = 2, .fault = faults_[place % faults_.size()]}};
            break;
    }
    return plan;
}

}  // namespace campaign
