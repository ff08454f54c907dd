#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace dfu {

// The DFU functional descriptor as it stands in a configuration descriptor, 9 bytes, little-endian.
#pragma pack(push, 1)
struct DfuFunctionalDescriptor {
    std::uint8_t bLength;
    std::uint8_t bDescriptorType;
    std::uint8_t bmAttributes;
    std::uint16_t wDetachTimeOut;  // ms
    std::uint16_t wTransferSize;   // bytes, of one control transfer
    std::uint16_t bcdDFUVersion;
};
#pragma pack(pop)
static_assert(sizeof(DfuFunctionalDescriptor) == 9);
static_assert(offsetof(DfuFunctionalDescriptor, wTransferSize) == 5);

// Walks a configuration descriptor, descriptor by descriptor, and returns the first one of type 0x21 and
// length 9; empty when there is none. `configuration` is what the device really sent: the walk ends at a
// descriptor of length 0 or one that reaches beyond it, whatever the device says of its lengths.
[[nodiscard]] std::optional<DfuFunctionalDescriptor> FindDfuFunctionalDescriptor(
    std::span<const std::uint8_t> configuration);

}  // namespace dfu
