#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace campaign {

// A seed for what has this name: the choices of two names have nothing to do with each other.
[[nodiscard]] std::uint64_t SeedOf(std::uint64_t seed, std::string_view name);

// So many different numbers below a total, chosen by a seed and spread over all of them. All, in their order,
// when no fewer are wanted.
class SeededChoice {
  public:
    // `total` is below 2^32.
    SeededChoice(std::size_t total, std::size_t count, std::uint64_t seed);

    [[nodiscard]] std::size_t Total() const { return total_; }
    [[nodiscard]] std::size_t Size() const { return size_; }
    // `number` is below Size().
    [[nodiscard]] std::size_t At(std::size_t number) const { return (first_ + number * step_) % total_; }

  private:
    std::size_t total_;
    std::size_t size_;
    std::size_t first_ = 0;
    std::size_t step_ = 1;  // has no divisor in common with the total
};

}  // namespace campaign
