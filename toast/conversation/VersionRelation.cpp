#include "toast/conversation/VersionRelation.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "toast/conversation/DecimalNumber.h"

namespace toast {
namespace {

using FourNumbers = std::array<std::uint32_t, 4>;

std::optional<FourNumbers> FourNumbersOf(std::wstring_view text) {
    FourNumbers numbers{};
    for (std::size_t index = 0; index < numbers.size(); ++index) {
        const bool isLast = index + 1 == numbers.size();
        const std::size_t end = isLast ? text.size() : text.find(L'.');
        if (end == std::wstring_view::npos) {
            return std::nullopt;
        }
        const std::optional<std::uint32_t> number = DecimalNumber(text.substr(0, end));
        if (!number) {
            return std::nullopt;
        }
        numbers.at(index) = *number;
        text.remove_prefix(isLast ? end : end + 1);
    }
    return numbers;
}

}  // namespace

VersionRelation RelationOf(std::wstring_view offered, std::wstring_view present) {
    const std::optional<FourNumbers> offeredNumbers = FourNumbersOf(offered);
    const std::optional<FourNumbers> presentNumbers = FourNumbersOf(present);
    if (!offeredNumbers || !presentNumbers || *offeredNumbers == *presentNumbers) {
        return VersionRelation::kDifferent;
    }
    return *offeredNumbers > *presentNumbers ? VersionRelation::kNewer : VersionRelation::kOlder;
}

}  // namespace toast
