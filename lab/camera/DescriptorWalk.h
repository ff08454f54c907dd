#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace lab {

// Hands each descriptor of a configuration of any content to `visit`, whole, in order; each has 2 bytes at
// least. The walk ends at the first that is shorter than its own header or reaches past the end.
template <typename Visit>
void WalkDescriptors(std::span<const std::uint8_t> configuration, const Visit& visit) {
    constexpr std::size_t kHeaderSize = 2;
    while (configuration.size() >= kHeaderSize) {
        const std::size_t length = configuration[0];
        if (length < kHeaderSize || length > configuration.size()) {
            return;
        }
        visit(configuration.first(length));
        configuration = configuration.subspan(length);
    }
}

}  // namespace lab
