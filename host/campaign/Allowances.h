#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace campaign {

// Something that must not be and is allowed all the same, because the service is made so or because no host
// could do better. docs/operations.md tells operators of each.
struct Allowance {
    std::string_view name;
    std::string_view reason;
};

// Their places in the table.
inline constexpr std::size_t kStateIsBelieved = 0;
inline constexpr std::size_t kHalfAnImageIsStarted = 1;
inline constexpr std::size_t kVersionDecides = 2;
inline constexpr std::size_t kVersionIsMissing = 3;

[[nodiscard]] std::span<const Allowance> Allowances();

}  // namespace campaign
