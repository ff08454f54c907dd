#include "host/campaign/TrialSet.h"

#include <numeric>
#include <utility>

namespace campaign {
namespace {

std::size_t TotalOf(TrialSet::Faults which, std::size_t faults) {
    switch (which) {
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

// A number that depends on the seed in every bit (splitmix64).
std::uint64_t Mix(std::uint64_t seed) {
    seed += 0x9E37'79B9'7F4A'7C15U;
    seed = (seed ^ seed >> 30) * 0xBF58'476D'1CE4'E5B9U;
    seed = (seed ^ seed >> 27) * 0x94D0'49BB'1331'11EBU;
    return seed ^ seed >> 31;
}

}  // namespace

TrialSet::TrialSet(const Kind& kind, Faults which, std::vector<lab::Fault> faults, std::size_t imageSize,
                   unsigned imageSeed)
    : kind_(kind),
      which_(which),
      faults_(std::move(faults)),
      imageSize_(imageSize),
      imageSeed_(imageSeed),
      total_(TotalOf(which, faults_.size())),
      size_(total_) {}

void TrialSet::Choose(std::size_t count, std::uint64_t seed) {
    if (count >= total_) {
        return;
    }
    size_ = count;
    first_ = Mix(seed) % total_;
    step_ = Mix(seed + 1) % total_;
    while (std::gcd(step_, total_) != 1) {
        step_ = (step_ + 1) % total_;
    }
}

std::string_view TrialSet::Name() const {
    switch (which_) {
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
    // Both factors are below 2^32: there are no so many trials.
    const std::size_t place = (first_ + number * step_) % total_;
    TrialPlan plan{.kind = &kind_, .imageSize = imageSize_, .seed = imageSeed_};
    switch (which_) {
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
