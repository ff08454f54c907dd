#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace toast {

// The number that a whole text of one or more ASCII digits stands for; nothing for every other text, and for
// a number that does not fit.
[[nodiscard]] std::optional<std::uint32_t> DecimalNumber(std::wstring_view text);

}  // namespace toast
