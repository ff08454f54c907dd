#pragma once

#include "lab/camera/UsbTypes.h"
#include "lab/served/ServedCamera.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace lab {

// The packets of the USB/IP protocol, version 1.1.1, in the byte order of the network, which is its own.

// What a connection begins with.
struct UsbIpOperation {
    enum class Code : std::uint16_t { ImportRequest = 0x8003, ListRequest = 0x8005 };
    static constexpr std::size_t kSize = 8;
    static constexpr std::size_t kBusIdSize = 32;  // follows an import request

    std::uint16_t version = 0;
    Code code = Code::ListRequest;

    // `bytes` are kSize at least.
    [[nodiscard]] static UsbIpOperation Read(std::span<const std::uint8_t> bytes);
};

// What an imported device is asked.
struct UsbIpCommand {
    enum class Code : std::uint32_t { Submit = 1, Unlink = 2 };
    static constexpr std::size_t kSize = 48;

    Code code = Code::Submit;
    std::uint32_t sequence = 0;
    bool isToHost = false;
    std::uint32_t endpoint = 0;  // without its direction
    // Submit:
    std::uint32_t length = 0;   // of the buffer, which follows when it goes to the device
    std::uint32_t packets = 0;  // isochronous ones, with a record of kPacketSize each behind the buffer
    SetupPacket setup = {};
    // Unlink: of the submit that is taken back.
    std::uint32_t unlinked = 0;

    static constexpr std::size_t kPacketSize = 16;

    // `bytes` are kSize at least; empty for another command.
    [[nodiscard]] static std::optional<UsbIpCommand> Read(std::span<const std::uint8_t> bytes);
    // Bytes that follow.
    [[nodiscard]] std::size_t Following() const;
};

// Status of a reply: Linux' negative error numbers.
enum class UsbIpStatus : std::int32_t { Ok = 0, Stall = -32, Reset = -104, Gone = -108 };

// "1-1" for camera 0, and the number of the bus and of the device on it.
[[nodiscard]] std::string BusIdOf(std::size_t camera);
inline constexpr std::uint32_t kUsbIpBus = 1;
[[nodiscard]] constexpr std::uint32_t DeviceNumberOf(std::size_t camera) {
    return static_cast<std::uint32_t>(camera + 1);
}

// A list of the cameras that are on the bus, with their interfaces.
[[nodiscard]] std::vector<std::uint8_t> MakeListReply(std::span<const std::uint8_t> devices,
                                                      std::uint32_t count);
[[nodiscard]] std::vector<std::uint8_t> MakeListedDevice(std::size_t camera, const UsbDevice& device);
// The answer to an import: the device, or none.
[[nodiscard]] std::vector<std::uint8_t> MakeImportReply(std::size_t camera, const UsbDevice* device);

// The answers to commands. `data` is what goes to the host; `transferred` counts the other direction too.
[[nodiscard]] std::vector<std::uint8_t> MakeSubmitReply(std::uint32_t sequence, UsbIpStatus status,
                                                        std::size_t transferred,
                                                        std::span<const std::uint8_t> data);
[[nodiscard]] std::vector<std::uint8_t> MakeUnlinkReply(std::uint32_t sequence, UsbIpStatus status);

}  // namespace lab
