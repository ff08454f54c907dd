#include "check/UpdateModeValue.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace check {
namespace {

constexpr std::string_view kServiceControlled = "Service Controlled";
constexpr std::size_t kCharacterSize = 2;
constexpr std::size_t kLongest = (kServiceControlled.size() + 1) * kCharacterSize;

}  // namespace

bool IsServiceControlled(std::span<const std::uint8_t> value) {
    if (value.size() > kLongest) {
        return false;
    }
    std::array<std::uint8_t, kLongest> wanted{};
    for (std::size_t index = 0; index < kServiceControlled.size(); ++index) {
        wanted[kCharacterSize * index] = static_cast<std::uint8_t>(kServiceControlled[index]);
    }
    std::array<std::uint8_t, kLongest> read{};
    std::copy(value.begin(), value.end(), read.begin());
    return read == wanted;
}

}  // namespace check
