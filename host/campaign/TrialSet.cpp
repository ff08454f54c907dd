#include "host/campaign/TrialSet.h"

#include <array>
#include <string_view>
#include <utility>

namespace campaign {
namespace {

// Of images besides the one that is asked for: the smallest, around one block, whole blocks.
constexpr std::array<std::size_t, 5> kOtherSizes{kSmallestImage, 1023, 1024, 1025, 2048};

std::size_t TotalOf(TrialSet::Faults which, std::size_t faults) {
    switch (which) {
        case TrialSet::Faults::None:
            return 1 + kOtherSizes.size();
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

std::string_view NameOf(TrialSet::Faults which) {
    switch (which) {
        case TrialSet::Faults::None:
            return "no fault";
        case TrialSet::Faults::One:
            return "one fault";
        case TrialSet::Faults::TwoInOneUpdate:
            return "two in one update";
        case TrialSet::Faults::OneInEachOfTwo:
            break;
    }
    return "one in each of two";
}

std::string_view NameOf(TrialSet::Begin begin) {
    switch (begin) {
        case TrialSet::Begin::AsEver:
            break;
        case TrialSet::Begin::Again:
            return ", arriving again";
        case TrialSet::Begin::Stale:
            return ", with a stale error";
    }
    return "";
}

}  // namespace

TrialSet::TrialSet(const Kind& kind, Faults which, std::vector<lab::Fault> faults, std::size_t imageSize,
                   unsigned imageSeed, Begin begin)
    : kind_(kind),
      which_(which),
      begin_(begin),
      faults_(std::move(faults)),
      imageSize_(imageSize),
      imageSeed_(imageSeed),
      choice_(TotalOf(which, faults_.size()), TotalOf(which, faults_.size()), 0) {}

void TrialSet::Choose(std::size_t count, std::uint64_t seed) {
    choice_ = SeededChoice(choice_.Total(), count, SeedOf(SeedOf(seed, kind_.name), Name()));
}

std::string TrialSet::Name() const {
    return std::string(NameOf(which_)) + std::string(NameOf(begin_));
}

TrialPlan TrialSet::Plan(std::size_t number) const {
    const std::size_t place = choice_.At(number);
    TrialPlan plan{.kind = &kind_, .imageSize = imageSize_, .seed = imageSeed_};
    switch (which_) {
        case Faults::None:
            plan.imageSize = place == 0 ? imageSize_ : kOtherSizes[place - 1];
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
    switch (begin_) {
        case Begin::AsEver:
            break;
        case Begin::Again:
            plan.circumstances = {{.update = 2, .what = Circumstance::What::ArrivesAgain}};
            break;
        case Begin::Stale:
            plan.circumstances = {{.update = 1, .what = Circumstance::What::StaleError}};
            break;
    }
    return plan;
}

}  // namespace campaign
