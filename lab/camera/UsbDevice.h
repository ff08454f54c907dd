#pragma once

#include "lab/camera/CameraDescriptors.h"
#include "lab/camera/InterfaceSettings.h"
#include "lab/camera/UsbTypes.h"
#include "lab/camera/VideoFunction.h"
#include "lab/camera/VirtualCamera.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lab {

// The visible states of the USB 2.0 standard, from the port's reset on.
enum class UsbState {
    Absent,      // not on the bus
    Default,     // reset, without an address
    Address,     // has an address
    Configured,  // its configuration is chosen: class requests are taken
};

// The camera on one port as a host's USB stack sees it: every control transfer on the default pipe, standard,
// class and vendor, while it runs and in DFU mode. Video control requests reach the camera's extension unit,
// DFU requests its state machine, and the faults of the settings strike on the way:
//
// - the faults of class requests and of the extension unit wherever they are asked;
// - those of GetDescriptor only in DFU mode, only for the device and configuration descriptor, and only once
//   the device is configured. A host reads both before that, as often as it likes, to find out what it has;
//   such reads are neither struck nor counted, so that a fault means the same to every host: the reads of the
//   driver. What lies between a reset and the next configuration is never struck;
// - those of SetInterface when an alternate setting is chosen in DFU mode.
//
// Hosts reset a port several times before they configure a device. So a reset is one of the bus alone until
// then; after it, it is VirtualCamera::Reset(), which may change the mode at once, without leaving the bus.
//
// Time and thread are as for VirtualCamera.
class UsbDevice {
  public:
    // Throws std::length_error when the settings have more units, or a longer serial number, than descriptors
    // can tell.
    explicit UsbDevice(CameraSettings settings);

    // As VirtualCamera has them. Coming to the bus, by itself too, it is in the default state.
    void Plug(std::uint64_t nowMs);
    void Unplug();
    void Advance(std::uint64_t nowMs);
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const { return camera_.NextDeadline(); }

    // The host resets the port: address, configuration, settings and halts are lost.
    void Reset(std::uint64_t nowMs);

    // One control transfer. For a device-to-host request `data` is filled, else read; data.size() is at least
    // setup.length, and no more than that is touched. Stall for what does not exist or is out of place in
    // this state, Disconnected when the camera is not on the bus, or leaves it meanwhile.
    TransferResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data,
                                   std::uint64_t nowMs);

    [[nodiscard]] UsbState State() const;
    [[nodiscard]] std::uint8_t Address() const { return address_; }
    // bConfigurationValue of what is chosen, 0 before.
    [[nodiscard]] std::uint8_t Configuration() const;
    // Interfaces and endpoints of the chosen configuration; null before.
    [[nodiscard]] const InterfaceSettings* Interfaces() const;
    // Every descriptor in the mode that it is in, or was in last.
    [[nodiscard]] CameraDescriptors Descriptors() const;

    [[nodiscard]] const VirtualCamera& Camera() const { return camera_; }

  private:
    using Bytes = std::vector<std::uint8_t>;

    void Follow();
    void ReturnToDefault();

    TransferResult HandleStandard(const SetupPacket& setup, std::span<std::uint8_t> data,
                                  std::uint64_t nowMs);
    TransferResult HandleClass(const SetupPacket& setup, std::span<std::uint8_t> data, std::uint64_t nowMs);
    TransferResult HandleVendor(const SetupPacket& setup, std::span<std::uint8_t> data) const;

    TransferResult GetDescriptor(const SetupPacket& setup, std::span<std::uint8_t> data, std::uint64_t nowMs);
    [[nodiscard]] std::optional<Bytes> Descriptor(const SetupPacket& setup) const;
    [[nodiscard]] std::optional<Bytes> ClassDescriptor(const SetupPacket& setup) const;
    [[nodiscard]] std::optional<Bytes> Status(const SetupPacket& setup) const;
    [[nodiscard]] std::optional<Bytes> DeviceStatus() const;
    [[nodiscard]] bool SetFeature(const SetupPacket& setup, bool isSet);
    [[nodiscard]] bool SetDeviceFeature(Feature feature, bool isSet);
    [[nodiscard]] bool SetAddress(const SetupPacket& setup);
    [[nodiscard]] bool SetConfiguration(const SetupPacket& setup);
    [[nodiscard]] std::uint8_t ConfigurationValue() const;
    TransferResult SetInterface(const SetupPacket& setup, std::uint64_t nowMs);

    VirtualCamera camera_;
    VideoFunction video_;
    BusMode mode_ = BusMode::Running;  // the last in which it was on the bus
    unsigned arrivals_ = 0;            // the camera's, as last seen
    std::uint8_t address_ = 0;
    std::optional<InterfaceSettings> interfaces_;  // once it is configured
    bool isU1Enabled_ = false;
    bool isU2Enabled_ = false;
};

}  // namespace lab
