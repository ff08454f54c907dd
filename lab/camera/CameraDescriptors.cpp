#include "lab/camera/CameraDescriptors.h"

#include "lab/camera/CapabilityDescriptors.h"
#include "lab/camera/DescriptorWriter.h"
#include "lab/camera/DfuDescriptors.h"
#include "lab/camera/DfuTraits.h"
#include "lab/camera/MsOsDescriptors.h"
#include "lab/camera/UvcDescriptors.h"
#include "lab/camera/UvcTypes.h"

#include <array>
#include <string>

namespace lab {
namespace {

constexpr std::uint8_t kMaxPacketSize = 64;             // of the default pipe
constexpr std::uint8_t kMaxPacketSizeAtSuperSpeed = 9;  // as a power of two: 512
constexpr std::uint8_t kConfigurations = 1;
constexpr std::uint8_t kHidInterface = 0;

struct DeviceClass {
    std::uint8_t code;
    std::uint8_t subclass;
    std::uint8_t protocol;
};

// Running: told by the interface association. DFU mode: by the interface.
DeviceClass ClassIn(BusMode mode) {
    return mode == BusMode::Running ? DeviceClass{0xEF, 0x02, 0x01} : DeviceClass{0, 0, 0};
}

// 2.01 is the first at which a host asks for the binary device object store.
std::uint16_t UsbVersion(BusMode mode, Speed speed) {
    if (speed == Speed::Super) {
        return 0x0300;
    }
    return mode == BusMode::Dfu ? 0x0201 : 0x0200;
}

std::uint8_t PacketSizeCode(Speed speed) {
    return speed == Speed::Super ? kMaxPacketSizeAtSuperSpeed : kMaxPacketSize;
}

DfuAbilities AbilitiesOf(const CameraSettings& settings) {
    return {
        .transferSize = settings.transferSize,
        .isManifestationTolerant = TraitsOf(settings).manifestation == DfuTraits::Manifestation::Tolerant};
}

// Its head: `interfaces` of them follow.
void BeginConfiguration(DescriptorWriter& writer, DescriptorType type, std::uint8_t interfaces) {
    constexpr std::uint8_t kBusPowered = 0x80;
    constexpr std::uint8_t kMaxPower = 50;  // 100 mA, at super speed 400 mA
    writer.Begin(type).OpenTotal().Bytes(
        {interfaces, CameraDescriptors::kConfigurationValue, 0, kBusPowered, kMaxPower});
}

std::vector<std::uint8_t> MakeString(std::u16string_view text) {
    return DescriptorWriter().Begin(DescriptorType::String).Text(text).Finish();
}

}  // namespace

CameraDescriptors::Bytes CameraDescriptors::Device() const {
    constexpr std::uint16_t kDeviceVersion = 0x0100;
    const DeviceClass deviceClass = ClassIn(mode_);
    const bool hasStrings = !settings_.serialNumber.empty();
    DescriptorWriter writer;
    writer.Begin(DescriptorType::Device)
        .Word(UsbVersion(mode_, settings_.speed))
        .Bytes({deviceClass.code, deviceClass.subclass, deviceClass.protocol})
        .Byte(PacketSizeCode(settings_.speed))
        .Word(kVendorId)
        .Word(mode_ == BusMode::Dfu ? kDfuProductId : kRunningProductId)
        .Word(kDeviceVersion);
    for (const std::uint8_t index : {kManufacturerString, kProductString, kSerialNumberString}) {
        writer.Byte(hasStrings ? index : std::uint8_t{0});
    }
    return writer.Byte(kConfigurations).Finish();
}

CameraDescriptors::Bytes CameraDescriptors::Configuration() const {
    if (mode_ == BusMode::Dfu && !settings_.configurationDescriptor.empty()) {
        return settings_.configurationDescriptor;
    }
    return OwnConfiguration(settings_.speed, DescriptorType::Configuration);
}

std::optional<CameraDescriptors::Bytes> CameraDescriptors::DeviceQualifier() const {
    if (settings_.speed == Speed::Super) {
        return std::nullopt;
    }
    const DeviceClass deviceClass = ClassIn(mode_);
    return DescriptorWriter()
        .Begin(DescriptorType::DeviceQualifier)
        .Word(UsbVersion(mode_, settings_.speed))
        .Bytes({deviceClass.code, deviceClass.subclass, deviceClass.protocol})
        .Bytes({kMaxPacketSize, kConfigurations, 0})
        .Finish();
}

std::optional<CameraDescriptors::Bytes> CameraDescriptors::OtherSpeedConfiguration() const {
    if (settings_.speed == Speed::Super) {
        return std::nullopt;
    }
    return OwnConfiguration(settings_.speed == Speed::Full ? Speed::High : Speed::Full,
                            DescriptorType::OtherSpeedConfiguration);
}

std::optional<CameraDescriptors::Bytes> CameraDescriptors::String(std::uint8_t index,
                                                                  std::uint16_t language) const {
    if (settings_.serialNumber.empty() || (index != 0 && language != kLanguage)) {
        return std::nullopt;
    }
    switch (index) {
        case 0:
            return DescriptorWriter().Begin(DescriptorType::String).Word(kLanguage).Finish();
        case kManufacturerString:
            return MakeString(u"Veyra");
        case kProductString:
            return MakeString(mode_ == BusMode::Dfu ? u"KV400 boot loader" : u"KV400 camera");
        case kSerialNumberString:
            return MakeString(std::u16string(settings_.serialNumber.begin(), settings_.serialNumber.end()));
        default:
            return std::nullopt;
    }
}

std::optional<CameraDescriptors::Bytes> CameraDescriptors::BinaryObjectStore() const {
    const std::optional<Bytes> msOsSet = MsOsSet();
    if (!msOsSet && settings_.speed != Speed::Super) {
        return std::nullopt;
    }
    return MakeBinaryObjectStore(settings_.speed,
                                 msOsSet ? static_cast<std::uint16_t>(msOsSet->size()) : std::uint16_t{0});
}

std::optional<CameraDescriptors::Bytes> CameraDescriptors::MsOsSet() const {
    return mode_ == BusMode::Dfu ? std::optional(MakeMsOsSet()) : std::nullopt;
}

std::optional<CameraDescriptors::Bytes> CameraDescriptors::HidReport(std::uint16_t interface) const {
    const bool hasHid = mode_ == BusMode::Dfu && settings_.configurationDescriptor.empty() &&
                        TraitsOf(settings_).hasHidInFront;
    return hasHid && interface == kHidInterface ? std::optional(MakeHidReport()) : std::nullopt;
}

CameraDescriptors::Bytes CameraDescriptors::OwnConfiguration(Speed speed, DescriptorType type) const {
    const DfuTraits traits = TraitsOf(settings_);
    DescriptorWriter writer;
    if (mode_ == BusMode::Dfu) {
        const std::uint8_t number = traits.hasHidInFront ? 1 : 0;
        BeginConfiguration(writer, type, static_cast<std::uint8_t>(number + 1));
        if (traits.hasHidInFront) {
            WriteHidInterface(writer, kHidInterface);
        }
        WriteDfuInterface(writer, number, DfuProtocol::DfuMode, AbilitiesOf(settings_));
    } else {
        BeginConfiguration(writer, type, traits.isRuntimeDevice ? 3 : 2);
        WriteVideoFunction(writer, VideoTopology(settings_), speed);
        if (traits.isRuntimeDevice) {
            WriteDfuInterface(writer, kRuntimeDfuInterface, DfuProtocol::Runtime, AbilitiesOf(settings_));
        }
    }
    return writer.Finish();
}

}  // namespace lab
