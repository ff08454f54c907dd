#include "lab/camera/DfuDescriptors.h"

#include "lab/camera/DescriptorWalk.h"

#include <algorithm>

namespace lab {
namespace {

constexpr std::uint8_t kApplicationSpecificClass = 0xFE;

}  // namespace

void WriteDfuInterface(DescriptorWriter& writer, std::uint8_t number, DfuProtocol protocol,
                       const DfuAbilities& abilities) {
    constexpr std::uint8_t kCanDownloadAndUpload = 0x03;
    constexpr std::uint8_t kManifestationTolerant = 0x04;
    constexpr std::uint8_t kDfuSubclass = 1;
    constexpr std::uint16_t kDetachTimeOutMs = 1000;
    constexpr std::uint16_t kDfuVersion = 0x0110;
    const auto attributes = static_cast<std::uint8_t>(
        kCanDownloadAndUpload | (abilities.isManifestationTolerant ? kManifestationTolerant : 0));
    writer.Begin(DescriptorType::Interface)
        .Bytes(
            {number, 0, 0, kApplicationSpecificClass, kDfuSubclass, static_cast<std::uint8_t>(protocol), 0});
    writer.Begin(DescriptorType::DfuFunctional)
        .Byte(attributes)
        .Word(kDetachTimeOutMs)
        .Word(abilities.transferSize)
        .Word(kDfuVersion);
}

void WriteHidInterface(DescriptorWriter& writer, std::uint8_t number) {
    constexpr std::uint8_t kHidClass = 3;
    constexpr std::uint16_t kHidVersion = 0x0111;
    constexpr auto kReport = static_cast<std::uint8_t>(DescriptorType::HidReport);
    writer.Begin(DescriptorType::Interface).Bytes({number, 0, 0, kHidClass, 0, 0, 0});
    writer.Begin(DescriptorType::Hid)
        .Word(kHidVersion)
        .Bytes({0, 1, kReport})
        .Word(static_cast<std::uint16_t>(MakeHidReport().size()));
}

std::vector<std::uint8_t> MakeHidReport() {
    return {
        0x06, 0x00, 0xFF,  // usage page: the vendor's
        0x09, 0x01,        // usage 1
        0xA1, 0x01,        // collection: application
        0x09, 0x02,        //   usage 2
        0x15, 0x00,        //   logical minimum 0
        0x26, 0xFF, 0x00,  //   logical maximum 255
        0x75, 0x08,        //   report size 8 bits
        0x95, 0x08,        //   report count 8
        0xB1, 0x02,        //   feature: data, variable, absolute
        0xC0,              // end of the collection
    };
}

std::vector<InterfaceDescriptor> FindInterfaces(std::span<const std::uint8_t> configuration) {
    constexpr auto kInterface = static_cast<std::uint8_t>(DescriptorType::Interface);
    std::vector<InterfaceDescriptor> interfaces;
    WalkDescriptors(configuration, [&interfaces](std::span<const std::uint8_t> descriptor) {
        InterfaceDescriptor head{};
        if (descriptor[1] == kInterface && descriptor.size() >= head.size()) {
            std::copy_n(descriptor.begin(), head.size(), head.begin());
            interfaces.push_back(head);
        }
    });
    return interfaces;
}

std::optional<std::uint8_t> FindDfuInterface(std::span<const std::uint8_t> configuration) {
    for (const InterfaceDescriptor& descriptor : FindInterfaces(configuration)) {
        if (descriptor[5] == kApplicationSpecificClass) {
            return descriptor[2];
        }
    }
    return std::nullopt;
}

}  // namespace lab
