#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lab {

using InterfaceDescriptor = std::array<std::uint8_t, 9>;

// The USB descriptors of the camera's DFU mode, in the byte order of the bus.
[[nodiscard]] std::vector<std::uint8_t> MakeDeviceDescriptor(std::uint16_t vendorId, std::uint16_t productId);

// One interface of class 0xFE, subclass 1, protocol 2, followed by the DFU functional descriptor. With a HID
// interface in front, the first descriptor of 9 bytes and type 0x21 is that of HID.
[[nodiscard]] std::vector<std::uint8_t> MakeConfigurationDescriptor(std::uint16_t transferSize,
                                                                    bool isManifestationTolerant,
                                                                    bool hasHidInFront = false);

// The interface descriptors in a configuration descriptor of any content. The walk ends at the first
// descriptor that is shorter than its own header or reaches past the end; an interface descriptor below 9
// bytes is passed over.
[[nodiscard]] std::vector<InterfaceDescriptor> FindInterfaces(std::span<const std::uint8_t> configuration);

// The number of the first interface of class 0xFE; empty when there is none.
[[nodiscard]] std::optional<std::uint8_t> FindDfuInterface(std::span<const std::uint8_t> configuration);

}  // namespace lab
