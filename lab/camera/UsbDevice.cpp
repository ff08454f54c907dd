#include "lab/camera/UsbDevice.h"

#include "lab/camera/DataStage.h"
#include "lab/camera/DfuDescriptors.h"
#include "lab/camera/DfuTraits.h"
#include "lab/camera/MsOsDescriptors.h"
#include "lab/camera/UvcTypes.h"

#include <algorithm>
#include <utility>

namespace lab {
namespace {

TransferResult Stalled() {
    return {.end = TransferEnd::Stall};
}

TransferResult Answer(const std::optional<std::vector<std::uint8_t>>& reply, std::span<std::uint8_t> data) {
    return reply ? Deliver(*reply, data) : Stalled();
}

// The direction in which a standard request has its data; SET_* and CLEAR_* are the others.
bool GoesToHost(StandardRequest request) {
    return request == StandardRequest::GetStatus || request == StandardRequest::GetDescriptor ||
           request == StandardRequest::GetConfiguration || request == StandardRequest::GetInterface ||
           request == StandardRequest::SynchFrame;
}

bool IsDefaultPipe(std::uint16_t endpoint) {
    constexpr std::uint16_t kWithoutDirection = 0x7F;
    return (endpoint & kWithoutDirection) == 0;
}

}  // namespace

UsbDevice::UsbDevice(CameraSettings settings) : camera_(std::move(settings)), video_(camera_.Settings()) {
    static_cast<void>(
        Descriptors().String(CameraDescriptors::kSerialNumberString, CameraDescriptors::kLanguage));
}

void UsbDevice::Plug(std::uint64_t nowMs) {
    camera_.Plug(nowMs);
    Follow();
}

void UsbDevice::Unplug() {
    camera_.Unplug();
    Follow();
}

void UsbDevice::Advance(std::uint64_t nowMs) {
    camera_.Advance(nowMs);
    Follow();
}

void UsbDevice::Reset(std::uint64_t nowMs) {
    Advance(nowMs);
    if (State() == UsbState::Configured) {
        camera_.Reset(nowMs);
    }
    ReturnToDefault();
    Follow();
}

TransferResult UsbDevice::ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data,
                                          std::uint64_t nowMs) {
    Advance(nowMs);
    if (State() == UsbState::Absent) {
        return {.end = TransferEnd::Disconnected};
    }
    const std::span<std::uint8_t> stage = data.first(std::min<std::size_t>(data.size(), setup.length));
    TransferResult result = Stalled();
    switch (KindOf(setup)) {
        case RequestKind::Standard:
            result = HandleStandard(setup, stage, nowMs);
            break;
        case RequestKind::Class:
            result = HandleClass(setup, stage, nowMs);
            break;
        case RequestKind::Vendor:
            result = HandleVendor(setup, stage);
            break;
        case RequestKind::Reserved:
            break;
    }
    Follow();
    return result;
}

UsbState UsbDevice::State() const {
    if (camera_.Mode() == BusMode::Absent) {
        return UsbState::Absent;
    }
    if (interfaces_) {
        return UsbState::Configured;
    }
    return address_ != 0 ? UsbState::Address : UsbState::Default;
}

std::uint8_t UsbDevice::Configuration() const {
    return interfaces_ ? ConfigurationValue() : std::uint8_t{0};
}

const InterfaceSettings* UsbDevice::Interfaces() const {
    return interfaces_ ? &*interfaces_ : nullptr;
}

CameraDescriptors UsbDevice::Descriptors() const {
    return {camera_.Settings(), mode_};
}

// The camera comes, leaves and changes its mode by itself.
void UsbDevice::Follow() {
    const BusMode mode = camera_.Mode();
    if (mode == BusMode::Absent || arrivals_ != camera_.Arrivals()) {
        ReturnToDefault();
        video_.Restart();
    }
    arrivals_ = camera_.Arrivals();
    mode_ = mode != BusMode::Absent ? mode : mode_;
}

void UsbDevice::ReturnToDefault() {
    address_ = 0;
    interfaces_.reset();
    isU1Enabled_ = false;
    isU2Enabled_ = false;
}

TransferResult UsbDevice::HandleStandard(const SetupPacket& setup, std::span<std::uint8_t> data,
                                         std::uint64_t nowMs) {
    const StandardRequest request{setup.request};
    const UsbState state = State();
    const Recipient recipient = RecipientOf(setup);
    const bool isToDevice = recipient == Recipient::Device;
    const bool isSuper = camera_.Settings().speed == Speed::Super;
    if (IsToHost(setup) != GoesToHost(request)) {
        return Stalled();
    }
    switch (request) {
        case StandardRequest::GetStatus:
            return Answer(Status(setup), data);
        case StandardRequest::ClearFeature:
            return Acknowledge(SetFeature(setup, false));
        case StandardRequest::SetFeature:
            return Acknowledge(SetFeature(setup, true));
        case StandardRequest::SetAddress:
            return Acknowledge(isToDevice && SetAddress(setup));
        case StandardRequest::GetDescriptor:
            return isToDevice ? GetDescriptor(setup, data, nowMs) : Answer(ClassDescriptor(setup), data);
        case StandardRequest::GetConfiguration:
            return isToDevice && state != UsbState::Default ? Answer(Bytes{Configuration()}, data)
                                                            : Stalled();
        case StandardRequest::SetConfiguration:
            return Acknowledge(isToDevice && SetConfiguration(setup));
        case StandardRequest::GetInterface: {
            const auto alternate = recipient == Recipient::Interface && interfaces_ && setup.index <= 0xFF
                                       ? interfaces_->Alternate(LowByte(setup.index))
                                       : std::nullopt;
            return alternate ? Answer(Bytes{*alternate}, data) : Stalled();
        }
        case StandardRequest::SetInterface:
            return recipient == Recipient::Interface ? SetInterface(setup, nowMs) : Stalled();
        // What the host tells of the bus's delays, which mean nothing here.
        case StandardRequest::SetSel:
            return Acknowledge(isSuper && isToDevice && state != UsbState::Default, data.size());
        case StandardRequest::SetIsochDelay:
            return Acknowledge(isSuper && isToDevice);
        case StandardRequest::SetDescriptor:
        case StandardRequest::SynchFrame:
            break;
    }
    return Stalled();
}

// Of DFU mode's interfaces VirtualCamera knows which is that of DFU; while it runs, its number is another.
TransferResult UsbDevice::HandleClass(const SetupPacket& setup, std::span<std::uint8_t> data,
                                      std::uint64_t nowMs) {
    if (State() != UsbState::Configured || RecipientOf(setup) != Recipient::Interface) {
        return Stalled();
    }
    if (mode_ == BusMode::Dfu) {
        return camera_.ControlTransfer(setup, data, nowMs);
    }
    if (setup.index != kRuntimeDfuInterface) {
        return video_.Handle(camera_, setup, data, nowMs);
    }
    const auto number = FindDfuInterface(camera_.ConfigurationDescriptor());
    if (!number) {
        return Stalled();
    }
    SetupPacket toDfuInterface = setup;
    toDfuInterface.index = *number;
    return camera_.ControlTransfer(toDfuInterface, data, nowMs);
}

TransferResult UsbDevice::HandleVendor(const SetupPacket& setup, std::span<std::uint8_t> data) const {
    const bool asksForSet = RecipientOf(setup) == Recipient::Device && IsToHost(setup) &&
                            setup.request == kMsOsVendorCode && setup.index == kMsOsSetIndex;
    return asksForSet ? Answer(Descriptors().MsOsSet(), data) : Stalled();
}

TransferResult UsbDevice::GetDescriptor(const SetupPacket& setup, std::span<std::uint8_t> data,
                                        std::uint64_t nowMs) {
    const DescriptorType type{HighByte(setup.value)};
    const bool meetsFaults = mode_ == BusMode::Dfu && State() == UsbState::Configured &&
                             (type == DescriptorType::Device || type == DescriptorType::Configuration);
    if (meetsFaults) {
        return camera_.ReadDescriptor(HighByte(setup.value), LowByte(setup.value), data, nowMs);
    }
    return Answer(Descriptor(setup), data);
}

std::optional<UsbDevice::Bytes> UsbDevice::Descriptor(const SetupPacket& setup) const {
    const DescriptorType type{HighByte(setup.value)};
    const std::uint8_t index = LowByte(setup.value);
    const CameraDescriptors descriptors = Descriptors();
    if (type == DescriptorType::String) {
        return descriptors.String(index, setup.index);
    }
    if (index != 0) {
        return std::nullopt;
    }
    if (type == DescriptorType::Device) {
        return descriptors.Device();
    }
    if (type == DescriptorType::Configuration) {
        return descriptors.Configuration();
    }
    if (type == DescriptorType::DeviceQualifier) {
        return descriptors.DeviceQualifier();
    }
    if (type == DescriptorType::OtherSpeedConfiguration) {
        return descriptors.OtherSpeedConfiguration();
    }
    if (type == DescriptorType::BinaryObjectStore) {
        return descriptors.BinaryObjectStore();
    }
    return std::nullopt;
}

// What a class keeps with its interface, and not in the configuration.
std::optional<UsbDevice::Bytes> UsbDevice::ClassDescriptor(const SetupPacket& setup) const {
    constexpr std::uint16_t kReport = static_cast<std::uint16_t>(DescriptorType::HidReport) << 8;
    const bool asksForReport =
        RecipientOf(setup) == Recipient::Interface && interfaces_ && setup.value == kReport;
    return asksForReport ? Descriptors().HidReport(setup.index) : std::nullopt;
}

std::optional<UsbDevice::Bytes> UsbDevice::Status(const SetupPacket& setup) const {
    if (State() == UsbState::Default || setup.value != 0) {
        return std::nullopt;
    }
    switch (RecipientOf(setup)) {
        case Recipient::Device:
            return setup.index == 0 ? DeviceStatus() : std::nullopt;
        case Recipient::Interface:
            // Until it is configured only the default pipe has a status, and interface 0 by the standard's
            // leave.
            if (setup.index <= 0xFF && interfaces_ && interfaces_->Alternate(LowByte(setup.index))) {
                return Bytes{0, 0};
            }
            return std::nullopt;
        case Recipient::Endpoint: {
            if (IsDefaultPipe(setup.index)) {
                return Bytes{0, 0};
            }
            const auto isHalted = interfaces_ && setup.index <= 0xFF
                                      ? interfaces_->IsHalted(LowByte(setup.index))
                                      : std::nullopt;
            return isHalted ? std::optional(Bytes{static_cast<std::uint8_t>(*isHalted ? 1 : 0), 0})
                            : std::nullopt;
        }
        case Recipient::Other:
            break;
    }
    return std::nullopt;
}

// Bus-powered, and no waking up.
std::optional<UsbDevice::Bytes> UsbDevice::DeviceStatus() const {
    constexpr int kU1Enabled = 0x04;
    constexpr int kU2Enabled = 0x08;
    return Bytes{static_cast<std::uint8_t>((isU1Enabled_ ? kU1Enabled : 0) | (isU2Enabled_ ? kU2Enabled : 0)),
                 0};
}

bool UsbDevice::SetFeature(const SetupPacket& setup, bool isSet) {
    const Feature feature{setup.value};
    if (State() == UsbState::Default) {
        return false;
    }
    switch (RecipientOf(setup)) {
        case Recipient::Device:
            return setup.index == 0 && SetDeviceFeature(feature, isSet);
        case Recipient::Endpoint:
            // A halt of the default pipe would end with the next setup packet: there is none to set.
            if (feature != Feature::EndpointHalt || setup.index > 0xFF) {
                return false;
            }
            if (IsDefaultPipe(setup.index)) {
                return !isSet;
            }
            return interfaces_ && interfaces_->SetHalt(LowByte(setup.index), isSet);
        case Recipient::Interface:
        case Recipient::Other:
            break;
    }
    return false;
}

bool UsbDevice::SetDeviceFeature(Feature feature, bool isSet) {
    if (camera_.Settings().speed != Speed::Super || State() != UsbState::Configured) {
        return false;
    }
    if (feature == Feature::U1Enable) {
        isU1Enabled_ = isSet;
        return true;
    }
    if (feature == Feature::U2Enable) {
        isU2Enabled_ = isSet;
        return true;
    }
    return false;
}

bool UsbDevice::SetAddress(const SetupPacket& setup) {
    constexpr std::uint16_t kMost = 127;
    if (State() == UsbState::Configured || setup.value > kMost || setup.index != 0 || setup.length != 0) {
        return false;
    }
    address_ = LowByte(setup.value);
    return true;
}

bool UsbDevice::SetConfiguration(const SetupPacket& setup) {
    const std::uint8_t value = LowByte(setup.value);
    if (State() == UsbState::Default || setup.index != 0 || setup.length != 0) {
        return false;
    }
    if (value == 0) {
        interfaces_.reset();
        return true;
    }
    if (value != ConfigurationValue()) {
        return false;
    }
    interfaces_.emplace(Descriptors().Configuration());
    return true;
}

// What the configuration descriptor tells; a replaced one may be too short to.
std::uint8_t UsbDevice::ConfigurationValue() const {
    constexpr std::size_t kPlace = 5;
    const Bytes configuration = Descriptors().Configuration();
    return configuration.size() > kPlace ? configuration[kPlace] : CameraDescriptors::kConfigurationValue;
}

TransferResult UsbDevice::SetInterface(const SetupPacket& setup, std::uint64_t nowMs) {
    if (!interfaces_ || setup.index > 0xFF || setup.value > 0xFF || setup.length != 0) {
        return Stalled();
    }
    const std::uint8_t number = LowByte(setup.index);
    InterfaceSettings chosen = *interfaces_;
    if (!chosen.Choose(number, LowByte(setup.value))) {
        return Stalled();
    }
    TransferResult result;
    if (mode_ == BusMode::Dfu && FindDfuInterface(camera_.ConfigurationDescriptor()) == number) {
        result = camera_.SetInterface(nowMs);
    }
    if (result.end == TransferEnd::Ok) {
        interfaces_ = std::move(chosen);
    }
    return result;
}

}  // namespace lab
