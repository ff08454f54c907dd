#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace campaign {

// Of how few pieces a flash can have been put together, each of which is part of an image, at its place, or
// erased (0xFF). A byte that none of them has there is a piece of its own.
[[nodiscard]] std::size_t FewestPieces(std::span<const std::uint8_t> flash,
                                       std::span<const std::vector<std::uint8_t>> images);

}  // namespace campaign
