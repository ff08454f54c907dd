#include "dfu/DfuFunctionalDescriptor.h"

#include <cstring>

namespace dfu {
namespace {

constexpr std::uint8_t kFunctionalDescriptorType = 0x21;

}  // namespace

std::optional<DfuFunctionalDescriptor> FindDfuFunctionalDescriptor(
    std::span<const std::uint8_t> configuration) {
    auto rest = configuration;
    while (!rest.empty()) {
        const std::size_t length = rest[0];
        if (length == 0 || length > rest.size()) {
            break;
        }
        if (length == sizeof(DfuFunctionalDescriptor) && rest[1] == kFunctionalDescriptorType) {
            DfuFunctionalDescriptor found{};
            std::memcpy(&found, rest.data(), sizeof found);
            return found;
        }
        rest = rest.subspan(length);
    }
    return std::nullopt;
}

}  // namespace dfu
