#include "lab/camera/CapabilityDescriptors.h"

#include "lab/camera/DescriptorWriter.h"
#include "lab/camera/MsOsDescriptors.h"

namespace lab {
namespace {

enum class Capability : std::uint8_t { Usb20Extension = 2, SuperSpeed = 3, Platform = 5 };

DescriptorWriter& BeginCapability(DescriptorWriter& writer, Capability capability) {
    return writer.Begin(DescriptorType::DeviceCapability).Byte(static_cast<std::uint8_t>(capability));
}

void WriteSuperSpeedCapabilities(DescriptorWriter& writer) {
    constexpr std::uint32_t kLinkPowerManagement = 0x02;
    constexpr std::uint16_t kFullHighAndSuperSpeed = 0x000E;
    constexpr std::uint8_t kWorksFromFullSpeedOn = 1;
    constexpr std::uint8_t kU1ExitMicroseconds = 10;
    constexpr std::uint16_t kU2ExitMicroseconds = 500;
    BeginCapability(writer, Capability::Usb20Extension).Long(kLinkPowerManagement);
    BeginCapability(writer, Capability::SuperSpeed)
        .Byte(0)
        .Word(kFullHighAndSuperSpeed)
        .Bytes({kWorksFromFullSpeedOn, kU1ExitMicroseconds})
        .Word(kU2ExitMicroseconds);
}

// {D8DD60DF-4589-4CC7-9CD2-659D9E648A9F}, Windows' version, what is announced, and how to ask for it.
void WriteMsOsPlatform(DescriptorWriter& writer, std::uint16_t setLength) {
    BeginCapability(writer, Capability::Platform)
        .Bytes({0, 0xDF, 0x60, 0xDD, 0xD8, 0x89, 0x45, 0xC7, 0x4C, 0x9C, 0xD2, 0x65, 0x9D, 0x9E, 0x64, 0x8A,
                0x9F})
        .Long(kMsOsWindowsVersion)
        .Word(setLength)
        .Bytes({kMsOsVendorCode, 0});
}

}  // namespace

std::vector<std::uint8_t> MakeBinaryObjectStore(Speed speed, std::uint16_t msOsSetLength) {
    constexpr std::uint8_t kSuperSpeedCapabilities = 2;
    const bool isSuper = speed == Speed::Super;
    const bool hasMsOsSet = msOsSetLength != 0;
    DescriptorWriter writer;
    writer.Begin(DescriptorType::BinaryObjectStore)
        .OpenTotal()
        .Byte(static_cast<std::uint8_t>((isSuper ? kSuperSpeedCapabilities : 0) + (hasMsOsSet ? 1 : 0)));
    if (isSuper) {
        WriteSuperSpeedCapabilities(writer);
    }
    if (hasMsOsSet) {
        WriteMsOsPlatform(writer, msOsSetLength);
    }
    return writer.Finish();
}

}  // namespace lab
