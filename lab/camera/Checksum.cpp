#include "lab/camera/Checksum.h"

#include <array>
#include <cstddef>

namespace lab {
namespace {

constexpr std::array<std::uint32_t, 256> MakeTable() {
    constexpr std::uint32_t kPolynomial = 0xEDB8'8320;
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t remainder = byte;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder & 1) != 0 ? remainder >> 1 ^ kPolynomial : remainder >> 1;
        }
        table[byte] = remainder;
    }
    return table;
}

constexpr std::array<std::uint32_t, 256> kTable = MakeTable();

}  // namespace

std::uint32_t Checksum(std::span<const std::uint8_t> bytes) {
    const std::uint32_t* const table = kTable.data();
    std::uint32_t remainder = 0xFFFF'FFFF;
    for (const std::uint8_t byte : bytes) {
        remainder = remainder >> 8 ^ table[(remainder ^ byte) & 0xFF];
    }
    return ~remainder;
}

}  // namespace lab
