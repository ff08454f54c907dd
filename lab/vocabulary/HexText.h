#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

// Two lower-case digits a byte, with nothing between: "21ab00".
[[nodiscard]] std::string HexText(std::span<const std::uint8_t> bytes);
// The same with one blank between the bytes: "21 ab 00".
[[nodiscard]] std::string SpacedHexText(std::span<const std::uint8_t> bytes);
// Reads either form, digits of either case; empty when a character is out of place.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> BytesFromHex(std::string_view text);

}  // namespace lab
