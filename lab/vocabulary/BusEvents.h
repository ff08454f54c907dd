#pragma once

#include "lab/camera/UsbTypes.h"
#include "lab/camera/VirtualCamera.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include <nlohmann/json_fwd.hpp>

// What the wire is told of that which crosses a camera's bus, whoever carries it: the rig for the service, a
// server for a foreign host. Errors and results are Windows' numbers, in which a transcript is read.
namespace lab {

// "absent", "running" or "dfu".
[[nodiscard]] const char* ModeText(BusMode mode);

// The last error with which WinUSB reports the end of a transfer; 0 for success. Disconnected: the device
// left during the transfer.
[[nodiscard]] std::uint32_t WinUsbError(TransferEnd end);
// The result (an HRESULT) with which the camera driver's property handler reports it.
[[nodiscard]] std::int32_t PropertyResult(TransferEnd end);

// A camera comes or goes: "plugged", "running", "dfu", "left" or "unplugged".
[[nodiscard]] nlohmann::json CameraEvent(std::size_t camera, const char* change, const std::string& version);

// A control transfer to the DFU interface. `data` is its buffer, of which `transferred` bytes were moved;
// `tookMs` as in TransferResult. What the host has sent is told whole, also when the device took less of it.
[[nodiscard]] nlohmann::json TransferEvent(const SetupPacket& setup, std::span<const std::uint8_t> data,
                                           std::size_t transferred, std::uint32_t error,
                                           std::uint32_t tookMs);

// A command frame is written, and the control read back: `reply` is what came.
[[nodiscard]] nlohmann::json CommandEvent(std::span<const std::uint8_t> frame, std::int32_t result);
[[nodiscard]] nlohmann::json ReplyEvent(std::span<const std::uint8_t> reply, std::int32_t result);

// A driver reads a descriptor into `buffer`, the first `transferred` bytes of which came.
[[nodiscard]] nlohmann::json DescriptorEvent(std::uint8_t type, std::uint8_t index,
                                             std::span<const std::uint8_t> buffer, std::size_t transferred,
                                             std::uint32_t error);
// A driver chooses an alternate setting.
[[nodiscard]] nlohmann::json AlternateSettingEvent(std::size_t interfaceNumber, std::uint8_t setting,
                                                   std::uint32_t error);

// Where a camera is, and what the wire is told about it besides.
[[nodiscard]] nlohmann::json CameraState(const VirtualCamera& camera, BusMode mode);

}  // namespace lab
