#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/guest/Places.h"

namespace lab::guest {

// One interface of a configured device, in the alternate setting that is chosen. Texts as sysfs has them:
// numbers in two hexadecimal digits; no driver is an empty text.
struct UsbInterface {
    std::string number;
    std::string setting;
    std::string deviceClass;
    std::string subClass;
    std::string protocol;
    std::string driver;
};

// One device of the kernel's tree. Texts as sysfs has them: the ids have four hexadecimal digits; what a
// device does not have is empty.
struct UsbDevice {
    std::string path;          // "1-2", "usb1" for a root hub
    std::uint32_t bus = 0;     // with `number` the name of its usbfs node
    std::uint32_t number = 0;  // a new one at each enumeration
    std::string vendor;
    std::string product;
    std::string release;        // bcdDevice
    std::string usb;            // bcdUSB: "2.00"
    std::string speed;          // megabits a second: "1.5", "480", "5000"
    std::string configuration;  // empty for an unconfigured device
    std::string manufacturerText;
    std::string productText;
    std::string serialText;
    std::string videoNode;  // "video0", when the UVC driver has it
    std::vector<UsbInterface> interfaces;
};

// The USB devices that the kernel knows, read from sysfs anew at each call: they come and go meanwhile.
class UsbTree {
  public:
    explicit UsbTree(const Places& places) : places_(places) {}

    // All, ordered by their paths.
    [[nodiscard]] std::vector<UsbDevice> Devices() const;
    // Throws std::system_error: EINVAL for a text that is no path, ENODEV when nothing is there.
    [[nodiscard]] UsbDevice Find(std::string_view path) const;
    // The device's descriptor and those of its configurations, as the kernel has kept them. Throws as Find.
    [[nodiscard]] std::vector<std::uint8_t> Descriptors(std::string_view path) const;
    // The name of the camera's first video node ("video0"); empty for a device that the UVC driver does not
    // have.
    [[nodiscard]] std::string VideoNode(std::string_view path) const;
    // The usbfs node.
    [[nodiscard]] std::filesystem::path NodeOf(const UsbDevice& device) const;

  private:
    [[nodiscard]] std::filesystem::path FolderOf(std::string_view path) const;
    [[nodiscard]] std::optional<UsbDevice> Read(const std::string& path) const;
    [[nodiscard]] std::vector<UsbInterface> Interfaces(const std::string& path) const;

    Places places_;
};

}  // namespace lab::guest
