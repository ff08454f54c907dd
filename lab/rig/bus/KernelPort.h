#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "lab/rig/bus/CameraPort.h"
#include "lab/rig/bus/KernelBus.h"

namespace lab::rig {

// A camera on another kernel's bus. Its coming and going is what that kernel tells; control transfers go
// through its usbfs, firmware commands through its UVC driver, and both take the time that they take. The
// cameras' ports are numbered from 1, on whichever root hub their speed puts them.
class KernelPort : public CameraPort {
  public:
    // The settings are what the camera's server was told as well; `kernel` must outlive this.
    KernelPort(std::size_t camera, const CameraSettings& settings, KernelBus& kernel);

    // The kernel tells of a device: `path` names its place ("1-2"), `product` its product ID as four
    // hexadecimal digits; empty when it has gone. False when that is another port's.
    bool TakeDevice(std::string_view path, std::string_view product);

    [[nodiscard]] const CameraSettings& Settings() const override { return settings_; }
    [[nodiscard]] BusMode Mode() const override { return mode_; }
    void Advance(std::uint64_t /*nowMs*/) override {}
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const override { return std::nullopt; }
    TransferResult WriteCommand(std::span<const std::uint8_t> frame, const Turn& turn) override;
    TransferResult ReadReply(std::span<std::uint8_t> reply, const Turn& turn) override;
    TransferResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data,
                                   const Turn& turn) override;
    TransferResult SetInterface(std::uint8_t number, std::uint8_t setting, const Turn& turn) override;
    TransferResult ReadDescriptor(std::uint8_t type, std::uint8_t index, std::span<std::uint8_t> buffer,
                                  const Turn& turn) override;
    [[nodiscard]] std::optional<InterfaceDescriptors> Interfaces(const Turn& turn) override;

  private:
    // One question about the camera, and its end as the transfer's; `data` gets what the camera has sent.
    TransferResult Ask(std::string_view command, nlohmann::json fields, std::span<std::uint8_t> data,
                       const Turn& turn);
    TransferResult ExtensionUnit(nlohmann::json fields, std::span<std::uint8_t> data, const Turn& turn);
    // usbfs wants an interface claimed before it carries a request to it.
    TransferResult Claim(std::uint8_t number, const Turn& turn);

    const std::string place_;  // what a path ends in
    const CameraSettings settings_;
    KernelBus& kernel_;
    std::string path_;
    BusMode mode_ = BusMode::Absent;
    unsigned devices_ = 0;  // that have been there
    std::optional<std::uint8_t> claimed_;
};

}  // namespace lab::rig
