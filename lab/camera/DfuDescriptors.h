#pragma once

#include "lab/camera/DescriptorWriter.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lab {

using InterfaceDescriptor = std::array<std::uint8_t, 9>;

// bInterfaceProtocol of a DFU interface.
enum class DfuProtocol : std::uint8_t { Runtime = 1, DfuMode = 2 };

// What the DFU functional descriptor tells of a device.
struct DfuAbilities {
    std::uint16_t transferSize = 0;
    bool isManifestationTolerant = false;
};

// The interface of class 0xFE and subclass 1, followed by the DFU functional descriptor.
void WriteDfuInterface(DescriptorWriter& writer, std::uint8_t number, DfuProtocol protocol,
                       const DfuAbilities& abilities);

// A HID interface without endpoints, whose own descriptor has the type and the length of the DFU functional
// descriptor.
void WriteHidInterface(DescriptorWriter& writer, std::uint8_t number);
// What a host reads from that interface: a vendor's feature report of eight bytes.
[[nodiscard]] std::vector<std::uint8_t> MakeHidReport();

// The interface descriptors in a configuration descriptor of any content, as far as WalkDescriptors() goes;
// one below 9 bytes is passed over.
[[nodiscard]] std::vector<InterfaceDescriptor> FindInterfaces(std::span<const std::uint8_t> configuration);

// The number of the first interface of class 0xFE; empty when there is none.
[[nodiscard]] std::optional<std::uint8_t> FindDfuInterface(std::span<const std::uint8_t> configuration);

}  // namespace lab
