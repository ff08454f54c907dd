#include "lab/vocabulary/HexText.h"

#include <algorithm>
#include <charconv>

namespace lab {
namespace {

constexpr char kDigits[] = "0123456789abcdef";

void AppendByte(std::string& text, std::uint8_t byte) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
}

}  // namespace

std::string HexText(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        AppendByte(text, byte);
    }
    return text;
}

std::string SpacedHexText(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        if (!text.empty()) {
            text += ' ';
        }
        AppendByte(text, byte);
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> BytesFromHex(std::string_view text) {
    std::string digits(text);
    std::erase(digits, ' ');
    if (digits.size() % 2 != 0) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes(digits.size() / 2);
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        const char* const begin = digits.data() + index * 2;
        const auto [end, error] = std::from_chars(begin, begin + 2, bytes[index], 16);
        if (error != std::errc{} || end != begin + 2) {
            return std::nullopt;
        }
    }
    return bytes;
}

}  // namespace lab
