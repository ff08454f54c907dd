#pragma once

#include "lab/camera/UsbDevice.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace lab {

// One camera that is served to a foreign host: the device, and what the wire is told of it. What crosses its
// bus is recorded in the words of BusEvents.h, as the rig's bus records what the service asks: commands of
// the extension unit, DFU requests, and what a driver asks in DFU mode besides. What a host's stack asks
// while it enumerates is not recorded, but for its end: the camera is "configured". For one thread.
class ServedCamera {
  public:
    using Recorder = std::function<void(const nlohmann::json& event)>;

    // `number` counts from 0. Without a serial number of its own it gets "KV400" and number + 1, in four
    // digits. Throws as UsbDevice does.
    ServedCamera(std::size_t number, CameraSettings settings, Recorder record);

    // Commands. They throw std::runtime_error when the camera is where it is to go.
    void Plug(std::uint64_t nowMs);
    void Unplug(std::uint64_t nowMs);
    [[nodiscard]] nlohmann::json State(std::uint64_t nowMs);

    // Makes happen what is due.
    void Advance(std::uint64_t nowMs);
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const { return device_.NextDeadline(); }

    // What the host does: UsbDevice's functions, recorded. A transfer other than GET_DESCRIPTOR gives an
    // address to a device that has none: neither protocol carries SET_ADDRESS, which is the business of the
    // host's controller.
    TransferResult Transfer(const SetupPacket& setup, std::span<std::uint8_t> data, std::uint64_t nowMs);
    void Reset(std::uint64_t nowMs);

    // The stay on the bus, counted from 1; 0 when it is not there. A new one is a device that the host has to
    // find anew; a reset, after which the camera may have another mode, does not begin one.
    [[nodiscard]] unsigned Stay() const;
    [[nodiscard]] const UsbDevice& Device() const { return device_; }

  private:
    void GiveAddress(const SetupPacket& setup, std::uint64_t nowMs);
    void Record(const SetupPacket& setup, std::span<const std::uint8_t> data, const TransferResult& result,
                BusMode mode, bool wasConfigured);
    void NoteChange(const char* changeWhenPresent = nullptr);
    void RecordChange(const char* change);

    std::size_t number_;
    Recorder record_;
    UsbDevice device_;
    BusMode mode_ = BusMode::Absent;  // as last recorded
    unsigned arrivals_ = 0;           // the camera's, as last seen
    unsigned stay_ = 0;
};

}  // namespace lab
