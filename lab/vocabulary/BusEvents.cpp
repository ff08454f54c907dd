#include "lab/vocabulary/BusEvents.h"

#include <algorithm>
#include <array>

#include <nlohmann/json.hpp>

#include "lab/camera/Checksum.h"
#include "lab/vocabulary/HexText.h"

namespace lab {
namespace {

using nlohmann::json;

// Windows' names for them.
constexpr std::uint32_t kSuccess = 0;
constexpr std::uint32_t kGeneralFailure = 31;
constexpr std::uint32_t kSemaphoreTimeout = 121;
constexpr std::uint32_t kDeviceNotConnected = 1167;

std::array<std::uint8_t, 8> SetupBytes(const SetupPacket& setup) {
    return {setup.requestType,    setup.request,         LowByte(setup.value),  HighByte(setup.value),
            LowByte(setup.index), HighByte(setup.index), LowByte(setup.length), HighByte(setup.length)};
}

// Little-endian; 0 where the bytes end.
std::uint32_t Number(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t width) {
    std::uint32_t number = 0;
    for (std::size_t index = 0; index < width && offset + index < bytes.size(); ++index) {
        number |= std::uint32_t{bytes[offset + index]} << (8 * index);
    }
    return number;
}

}  // namespace

const char* ModeText(BusMode mode) {
    switch (mode) {
        case BusMode::Absent:
            return "absent";
        case BusMode::Running:
            return "running";
        case BusMode::Dfu:
            return "dfu";
    }
    return "absent";
}

std::uint32_t WinUsbError(TransferEnd end) {
    switch (end) {
        case TransferEnd::Ok:
            return kSuccess;
        case TransferEnd::Stall:
        case TransferEnd::Disconnected:
            return kGeneralFailure;
        case TransferEnd::Timeout:
            return kSemaphoreTimeout;
    }
    return kGeneralFailure;
}

std::int32_t PropertyResult(TransferEnd end) {
    constexpr std::uint32_t kFromWindows = 0x80070000;
    const std::uint32_t error = end == TransferEnd::Disconnected ? kDeviceNotConnected : WinUsbError(end);
    return error == kSuccess ? 0 : static_cast<std::int32_t>(kFromWindows | error);
}

json CameraEvent(std::size_t camera, const char* change, const std::string& version) {
    return {{"event", "camera"}, {"camera", camera}, {"change", change}, {"version", version}};
}

json TransferEvent(const SetupPacket& setup, std::span<const std::uint8_t> data, std::size_t transferred,
                   std::uint32_t error, std::uint32_t tookMs) {
    json event{{"event", "transfer"},     {"setup", SpacedHexText(SetupBytes(setup))},
               {"length", data.size()},   {"transferred", transferred},
               {"ok", error == kSuccess}, {"error", error}};
    if (tookMs != 0) {
        event["ms"] = tookMs;
    }
    if (IsToHost(setup)) {
        event["data"] = HexText(data.first(transferred));
    } else if (setup.length != 0) {
        event["sent"] = HexText(data.first(std::min<std::size_t>(data.size(), setup.length)));
    }
    return event;
}

json CommandEvent(std::span<const std::uint8_t> frame, std::int32_t result) {
    return {{"event", "firmware-command"},
            {"length", Number(frame, 0, 2)},
            {"magic", Number(frame, 2, 2)},
            {"opcode", Number(frame, 4, 4)},
            {"parameters",
             {Number(frame, 8, 4), Number(frame, 12, 4), Number(frame, 16, 4), Number(frame, 20, 4)}},
            {"result", result}};
}

json ReplyEvent(std::span<const std::uint8_t> reply, std::int32_t result) {
    return {{"event", "firmware-reply"},
            {"opcode", Number(reply, 0, 4)},
            {"bytes", reply.size()},
            {"result", result}};
}

json DescriptorEvent(std::uint8_t type, std::uint8_t index, std::span<const std::uint8_t> buffer,
                     std::size_t transferred, std::uint32_t error) {
    return {{"event", "descriptor"},
            {"type", type},
            {"index", index},
            {"length", buffer.size()},
            {"transferred", transferred},
            {"ok", error == kSuccess},
            {"error", error},
            {"data", HexText(buffer.first(std::min(transferred, buffer.size())))}};
}

json AlternateSettingEvent(std::size_t interfaceNumber, std::uint8_t setting, std::uint32_t error) {
    return {{"event", "alternate-setting"},
            {"interface", interfaceNumber},
            {"setting", setting},
            {"ok", error == kSuccess},
            {"error", error}};
}

json CameraState(const VirtualCamera& camera, BusMode mode) {
    const FlashMemory survivor = camera.Survivor();
    return {{"mode", ModeText(mode)},
            {"on_its_way", mode != BusMode::Absent || camera.NextDeadline().has_value()},
            {"pending", camera.NextDeadline().has_value()},
            {"dfu_state", static_cast<unsigned>(camera.State())},
            {"dfu_status", static_cast<unsigned>(camera.Status())},
            {"version", camera.Version()},
            {"flash_bytes", camera.Flash().size()},
            {"after_power_failure",
             {{"valid", survivor.IsValid()},
              {"bytes", survivor.Bytes().size()},
              {"checksum", Checksum(survivor.Bytes())}}},
            {"block_number_gaps", camera.BlockNumberGaps()},
            {"transfers", camera.Transfers()}};
}

}  // namespace lab
