#include "host/campaign/Pieces.h"

#include <algorithm>
#include <iterator>

namespace campaign {
namespace {

constexpr std::uint8_t kErased = 0xFF;

std::size_t AlikeFrom(std::span<const std::uint8_t> flash, std::span<const std::uint8_t> image,
                      std::size_t offset) {
    if (offset >= image.size()) {
        return 0;
    }
    const auto rest = flash.subspan(offset);
    const auto end = std::ranges::mismatch(rest, image.subspan(offset)).in1;
    return static_cast<std::size_t>(std::distance(rest.begin(), end));
}

std::size_t ErasedFrom(std::span<const std::uint8_t> flash, std::size_t offset) {
    const auto rest = flash.subspan(offset);
    const auto end = std::ranges::find_if(rest, [](std::uint8_t byte) { return byte != kErased; });
    return static_cast<std::size_t>(std::distance(rest.begin(), end));
}

}  // namespace

std::size_t FewestPieces(std::span<const std::uint8_t> flash,
                         std::span<const std::vector<std::uint8_t>> images) {
    std::size_t pieces = 0;
    for (std::size_t offset = 0; offset < flash.size(); ++pieces) {
        // The longest piece from here is never the wrong one: what is behind it can begin anywhere.
        std::size_t longest = std::max<std::size_t>(1, ErasedFrom(flash, offset));
        for (const std::vector<std::uint8_t>& image : images) {
            longest = std::max(longest, AlikeFrom(flash, image, offset));
        }
        offset += longest;
    }
    return pieces;
}

}  // namespace campaign
