#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace fuzz {

// Reads a fuzzer's bytes from front to back. Numbers are little-endian; behind the end everything is 0.
class FuzzInput {
  public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    [[nodiscard]] bool IsEmpty() const { return rest_.empty(); }

    std::uint8_t Byte() {
        if (rest_.empty()) {
            return 0;
        }
        const std::uint8_t byte = rest_.front();
        rest_ = rest_.subspan(1);
        return byte;
    }
    std::uint16_t Word() {
        const std::uint8_t low = Byte();
        return static_cast<std::uint16_t>(low | Byte() << 8);
    }
    std::uint32_t Long() {
        const std::uint32_t low = Word();
        return low | std::uint32_t{Word()} << 16;
    }
    // At most `count` bytes, in memory of exactly their number.
    std::vector<std::uint8_t> Bytes(std::size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }
    std::vector<std::uint8_t> Rest() { return Bytes(rest_.size()); }

  private:
    std::span<const std::uint8_t> rest_;
};

}  // namespace fuzz
