#include "lab/guest/UsbPath.h"

#include <algorithm>

namespace lab::guest {
namespace {

constexpr std::size_t kMostDigits = 3;

// Takes a number's digits off the front; false when there are none, or too many.
bool TakeNumber(std::string_view& text) {
    const std::size_t length = std::min(text.find_first_not_of("0123456789"), text.size());
    text.remove_prefix(length);
    return length > 0 && length <= kMostDigits;
}

bool TakePrefix(std::string_view& text, std::string_view prefix) {
    if (!text.starts_with(prefix)) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

}  // namespace

bool IsUsbPath(std::string_view text) {
    if (TakePrefix(text, "usb")) {
        return TakeNumber(text) && text.empty();
    }
    if (!TakeNumber(text) || !TakePrefix(text, "-") || !TakeNumber(text)) {
        return false;
    }
    while (!text.empty()) {
        if (!TakePrefix(text, ".") || !TakeNumber(text)) {
            return false;
        }
    }
    return true;
}

}  // namespace lab::guest
