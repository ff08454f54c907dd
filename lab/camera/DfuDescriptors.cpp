#include "lab/camera/DfuDescriptors.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>

namespace lab {
namespace {

constexpr std::uint8_t kDeviceType = 0x01;
constexpr std::uint8_t kConfigurationType = 0x02;
constexpr std::uint8_t kInterfaceType = 0x04;
constexpr std::uint8_t kDfuFunctionalType = 0x21;
constexpr std::uint8_t kHidType = 0x21;
constexpr std::uint8_t kApplicationSpecificClass = 0xFE;

constexpr std::uint8_t Low(std::uint16_t value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}
constexpr std::uint8_t High(std::uint16_t value) {
    return static_cast<std::uint8_t>(value >> 8);
}

void Append(std::vector<std::uint8_t>& bytes, std::initializer_list<std::uint8_t> more) {
    bytes.insert(bytes.end(), more);
}

}  // namespace

// The class is told in the interface descriptor; no strings; one configuration.
std::vector<std::uint8_t> MakeDeviceDescriptor(std::uint16_t vendorId, std::uint16_t productId) {
    constexpr std::uint8_t kMaxPacketSize = 64;
    std::vector<std::uint8_t> descriptor{18, kDeviceType, 0x00, 0x02, 0, 0, 0, kMaxPacketSize};
    Append(descriptor, {Low(vendorId), High(vendorId), Low(productId), High(productId)});
    Append(descriptor, {0x00, 0x01, 0, 0, 0, 1});
    return descriptor;
}

std::vector<std::uint8_t> MakeConfigurationDescriptor(std::uint16_t transferSize,
                                                      bool isManifestationTolerant, bool hasHidInFront) {
    constexpr std::uint8_t kCanDownloadAndUpload = 0x03;
    constexpr std::uint8_t kManifestationTolerant = 0x04;
    constexpr std::uint16_t kDetachTimeOutMs = 1000;
    constexpr std::uint8_t kHidClass = 3;
    constexpr std::uint8_t kReportType = 0x22;
    const std::uint8_t interfaces = hasHidInFront ? 2 : 1;
    const auto attributes = static_cast<std::uint8_t>(kCanDownloadAndUpload |
                                                      (isManifestationTolerant ? kManifestationTolerant : 0));

    const auto totalLength = static_cast<std::uint8_t>(9 + 18 * interfaces);
    std::vector<std::uint8_t> descriptor{9, kConfigurationType, totalLength, 0, interfaces, 1, 0, 0x80, 50};
    if (hasHidInFront) {
        Append(descriptor, {9, kInterfaceType, 0, 0, 0, kHidClass, 0, 0, 0});
        Append(descriptor, {9, kHidType, 0x11, 0x01, 0, 1, kReportType, 63, 0});
    }
    const auto number = static_cast<std::uint8_t>(interfaces - 1);
    Append(descriptor, {9, kInterfaceType, number, 0, 0, kApplicationSpecificClass, 0x01, 0x02, 0});
    Append(descriptor, {9, kDfuFunctionalType, attributes, Low(kDetachTimeOutMs), High(kDetachTimeOutMs),
                        Low(transferSize), High(transferSize), 0x10, 0x01});
    return descriptor;
}

std::vector<InterfaceDescriptor> FindInterfaces(std::span<const std::uint8_t> configuration) {
    std::vector<InterfaceDescriptor> interfaces;
    while (configuration.size() >= 2) {
        const std::size_t length = configuration[0];
        if (length < 2 || length > configuration.size()) {
            break;
        }
        InterfaceDescriptor descriptor{};
        if (configuration[1] == kInterfaceType && length >= descriptor.size()) {
            std::copy_n(configuration.begin(), descriptor.size(), descriptor.begin());
            interfaces.push_back(descriptor);
        }
        configuration = configuration.subspan(length);
    }
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
