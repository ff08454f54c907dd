#pragma once

#include <cstddef>
#include <cstdint>

namespace lab {

// The eight bytes of a USB control request's setup stage, as fields.
struct SetupPacket {
    std::uint8_t requestType = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;
};

// How a control transfer ended, as the host controller would see it.
enum class TransferEnd { Ok, Stall, Timeout, Disconnected };

struct TransferResult {
    TransferEnd end = TransferEnd::Ok;
    std::size_t transferred = 0;  // bytes of the data stage
    std::uint32_t tookMs = 0;     // what the host waited for the answer, or before it gave up
};

// Fields of bmRequestType.
enum class RequestKind : std::uint8_t { Standard = 0, Class = 1, Vendor = 2, Reserved = 3 };
enum class Recipient : std::uint8_t { Device = 0, Interface = 1, Endpoint = 2, Other = 3 };

[[nodiscard]] constexpr bool IsToHost(const SetupPacket& setup) {
    return (setup.requestType & 0x80) != 0;
}
[[nodiscard]] constexpr RequestKind KindOf(const SetupPacket& setup) {
    return RequestKind{static_cast<std::uint8_t>(setup.requestType >> 5 & 0x03)};
}
// Recipients from 4 on, which are reserved, count as Other.
[[nodiscard]] constexpr Recipient RecipientOf(const SetupPacket& setup) {
    const int recipient = setup.requestType & 0x1F;
    return recipient < 3 ? Recipient{static_cast<std::uint8_t>(recipient)} : Recipient::Other;
}

[[nodiscard]] constexpr std::uint8_t LowByte(std::uint16_t value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}
[[nodiscard]] constexpr std::uint8_t HighByte(std::uint16_t value) {
    return static_cast<std::uint8_t>(value >> 8);
}

// Standard requests (bRequest) of the USB 2.0 standard, with its numbers, and those that super speed adds.
enum class StandardRequest : std::uint8_t {
    GetStatus = 0,
    ClearFeature = 1,
    SetFeature = 3,
    SetAddress = 5,
    GetDescriptor = 6,
    SetDescriptor = 7,
    GetConfiguration = 8,
    SetConfiguration = 9,
    GetInterface = 10,
    SetInterface = 11,
    SynchFrame = 12,
    SetSel = 0x30,
    SetIsochDelay = 0x31,
};

// What CLEAR_FEATURE and SET_FEATURE name: of an endpoint, and of a device at super speed.
enum class Feature : std::uint16_t { EndpointHalt = 0, U1Enable = 48, U2Enable = 49 };

// Descriptor types (bDescriptorType) of the standards, with their numbers.
enum class DescriptorType : std::uint8_t {
    Device = 0x01,
    Configuration = 0x02,
    String = 0x03,
    Interface = 0x04,
    Endpoint = 0x05,
    DeviceQualifier = 0x06,
    OtherSpeedConfiguration = 0x07,
    InterfaceAssociation = 0x0B,
    BinaryObjectStore = 0x0F,
    DeviceCapability = 0x10,
    Hid = 0x21,
    DfuFunctional = 0x21,
    HidReport = 0x22,
    ClassSpecificInterface = 0x24,
    EndpointCompanion = 0x30,
};

}  // namespace lab
