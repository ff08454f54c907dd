#pragma once

#include "lab/camera/VirtualCamera.h"
#include "lab/rig/bus/CameraPort.h"

namespace lab::rig {

// A virtual camera in this process, whose time is the bus' clock: no transfer takes any of it.
class VirtualPort : public CameraPort {
  public:
    explicit VirtualPort(const CameraSettings& settings) : camera_(settings) {}

    [[nodiscard]] VirtualCamera& Camera() { return camera_; }

    [[nodiscard]] const CameraSettings& Settings() const override { return camera_.Settings(); }
    [[nodiscard]] BusMode Mode() const override { return camera_.Mode(); }
    void Advance(std::uint64_t nowMs) override { camera_.Advance(nowMs); }
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const override {
        return camera_.NextDeadline();
    }
    TransferResult WriteCommand(std::span<const std::uint8_t> frame, const Turn& turn) override {
        return camera_.WriteCommand(frame, turn.nowMs);
    }
    TransferResult ReadReply(std::span<std::uint8_t> reply, const Turn& turn) override {
        return camera_.ReadReply(reply, turn.nowMs);
    }
    TransferResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data,
                                   const Turn& turn) override {
        return camera_.ControlTransfer(setup, data, turn.nowMs);
    }
    TransferResult SetInterface(std::uint8_t /*number*/, std::uint8_t /*setting*/,
                                const Turn& turn) override {
        return camera_.SetInterface(turn.nowMs);
    }
    TransferResult ReadDescriptor(std::uint8_t type, std::uint8_t index, std::span<std::uint8_t> buffer,
                                  const Turn& turn) override {
        return camera_.ReadDescriptor(type, index, buffer, turn.nowMs);
    }
    [[nodiscard]] std::optional<InterfaceDescriptors> Interfaces(const Turn& /*turn*/) override {
        return camera_.Interfaces();
    }

  private:
    VirtualCamera camera_;
};

}  // namespace lab::rig
