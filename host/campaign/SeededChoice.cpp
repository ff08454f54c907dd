#include "host/campaign/SeededChoice.h"

#include <algorithm>
#include <numeric>

namespace campaign {
namespace {

// A number that depends on the seed in every bit (splitmix64).
std::uint64_t Mix(std::uint64_t seed) {
    seed += 0x9E37'79B9'7F4A'7C15U;
    seed = (seed ^ seed >> 30) * 0xBF58'476D'1CE4'E5B9U;
    seed = (seed ^ seed >> 27) * 0x94D0'49BB'1331'11EBU;
    return seed ^ seed >> 31;
}

}  // namespace

std::uint64_t SeedOf(std::uint64_t seed, std::string_view name) {
    std::uint64_t mixed = Mix(seed);
    for (const char letter : name) {
        mixed = Mix(mixed ^ static_cast<unsigned char>(letter));
    }
    return mixed;
}

SeededChoice::SeededChoice(std::size_t total, std::size_t count, std::uint64_t seed)
    : total_(total), size_(std::min(total, count)) {
    if (size_ == total_) {
        return;
    }
    first_ = Mix(seed) % total_;
    step_ = Mix(seed + 1) % total_;
    while (std::gcd(step_, total_) != 1) {
        step_ = (step_ + 1) % total_;
    }
}

}  // namespace campaign
