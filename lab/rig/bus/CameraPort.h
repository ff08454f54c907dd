#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "lab/camera/BusMode.h"
#include "lab/camera/CameraSettings.h"
#include "lab/camera/DfuDescriptors.h"
#include "lab/camera/UsbTypes.h"

namespace lab::rig {

// The interface descriptors of a camera in DFU mode.
using InterfaceDescriptors = std::vector<InterfaceDescriptor>;

// A port of the bus with its camera, as the drivers of the host meet it: a virtual one in this process, or
// one that another kernel drives. The bus calls it with its lock held.
class CameraPort {
  public:
    // When and under what lock a transfer begins. A port whose transfers take real time gives the lock back
    // while it waits.
    struct Turn {
        std::unique_lock<std::mutex>& bus;
        std::uint64_t nowMs;
    };

    CameraPort() = default;
    virtual ~CameraPort() = default;
    CameraPort(const CameraPort&) = delete;
    CameraPort& operator=(const CameraPort&) = delete;

    [[nodiscard]] virtual const CameraSettings& Settings() const = 0;
    [[nodiscard]] virtual BusMode Mode() const = 0;

    // What happens by itself by that time, and when the next thing does; nothing where time is not the bus'.
    virtual void Advance(std::uint64_t nowMs) = 0;
    [[nodiscard]] virtual std::optional<std::uint64_t> NextDeadline() const = 0;

    // Transfers, as VirtualCamera has them.
    virtual TransferResult WriteCommand(std::span<const std::uint8_t> frame, const Turn& turn) = 0;
    virtual TransferResult ReadReply(std::span<std::uint8_t> reply, const Turn& turn) = 0;
    virtual TransferResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data,
                                           const Turn& turn) = 0;
    virtual TransferResult SetInterface(std::uint8_t number, std::uint8_t setting, const Turn& turn) = 0;
    virtual TransferResult ReadDescriptor(std::uint8_t type, std::uint8_t index,
                                          std::span<std::uint8_t> buffer, const Turn& turn) = 0;
    // As the driver has read them when the camera arrived; none when it has gone meanwhile.
    [[nodiscard]] virtual std::optional<InterfaceDescriptors> Interfaces(const Turn& turn) = 0;
};

}  // namespace lab::rig
