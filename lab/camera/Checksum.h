#pragma once

#include <cstdint>
#include <span>

namespace lab {

// CRC-32 as in Ethernet and ZIP.
[[nodiscard]] std::uint32_t Checksum(std::span<const std::uint8_t> bytes);

}  // namespace lab
