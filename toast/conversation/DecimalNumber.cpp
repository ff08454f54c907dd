#include "toast/conversation/DecimalNumber.h"

#include <limits>

namespace toast {

std::optional<std::uint32_t> DecimalNumber(std::wstring_view text) {
    if (text.empty()) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (const wchar_t digit : text) {
        if (digit < L'0' || digit > L'9') {
            return std::nullopt;
        }
        number = number * 10 + static_cast<std::uint64_t>(digit - L'0');
        if (number > std::numeric_limits<std::uint32_t>::max()) {
            return std::nullopt;
        }
    }
    return static_cast<std::uint32_t>(number);
}

}  // namespace toast
