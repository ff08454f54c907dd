#pragma once

#include "lab/camera/BusMode.h"
#include "lab/camera/CameraSettings.h"
#include "lab/camera/UsbTypes.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace lab {

// Every descriptor that a camera answers with in one of its two modes, whole, in the byte order of the bus.
// What is empty is stalled.
class CameraDescriptors {
  public:
    static constexpr std::uint16_t kVendorId = 0x2F1A;
    static constexpr std::uint16_t kRunningProductId = 0x7E00;
    static constexpr std::uint16_t kDfuProductId = 0x7E01;
    // What SET_CONFIGURATION chooses, unless the configuration descriptor is replaced.
    static constexpr std::uint8_t kConfigurationValue = 1;
    // The language of the strings: English.
    static constexpr std::uint16_t kLanguage = 0x0409;

    // The strings by their index; 0 is the language table.
    static constexpr std::uint8_t kManufacturerString = 1;
    static constexpr std::uint8_t kProductString = 2;
    static constexpr std::uint8_t kSerialNumberString = 3;

    using Bytes = std::vector<std::uint8_t>;

    // `settings` must outlive this; `mode` is Running or Dfu.
    CameraDescriptors(const CameraSettings& settings, BusMode mode) : settings_(settings), mode_(mode) {}

    [[nodiscard]] Bytes Device() const;
    // In DFU mode CameraSettings::configurationDescriptor, if there is one. Throws std::length_error for a
    // topology that does not fit into it.
    [[nodiscard]] Bytes Configuration() const;
    // What differs at the other of full and high speed; empty at super speed. The other speed's
    // configuration is the camera's own, also where this speed's is replaced.
    [[nodiscard]] std::optional<Bytes> DeviceQualifier() const;
    [[nodiscard]] std::optional<Bytes> OtherSpeedConfiguration() const;
    // The language table (index 0), manufacturer, product and serial number. Empty for another index or
    // language, and when CameraSettings::serialNumber is. Throws std::length_error for a serial number above
    // 126 characters.
    [[nodiscard]] std::optional<Bytes> String(std::uint8_t index, std::uint16_t language) const;
    // In DFU mode, and at super speed.
    [[nodiscard]] std::optional<Bytes> BinaryObjectStore() const;
    // In DFU mode.
    [[nodiscard]] std::optional<Bytes> MsOsSet() const;
    // Of an interface: in DFU mode, of the HID interface in front, unless the configuration is replaced.
    [[nodiscard]] std::optional<Bytes> HidReport(std::uint16_t interface) const;

  private:
    [[nodiscard]] Bytes OwnConfiguration(Speed speed, DescriptorType type) const;

    const CameraSettings& settings_;
    BusMode mode_;
};

}  // namespace lab
