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
    constexpr std::uint8_t kReportType = 0x22;
    constexpr std::uint16_t kReportSize = 63;
    writer.Begin(DescriptorType::Interface).Bytes({number, 0, 0, kHidClass, 0, 0, 0});
    writer.Begin(DescriptorType::Hid).Word(kHidVersion).Bytes({0, 1, kReportType}).Word(kReportSize);
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
