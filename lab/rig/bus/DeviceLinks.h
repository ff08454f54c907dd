#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace lab::rig {

// How a camera's links depart from what Windows mostly writes.
struct LinkStyle {
    enum class Case { AsWindows, Lower, Upper, Mixed };
    Case announcedIn = Case::AsWindows;  // in events and in the list of present interfaces
    std::size_t length = 0;              // every link is padded to this many characters
    bool isListedTwice = false;          // the sensor camera is among the plain capture sources too
    // The class of the link that the camera has among the plain capture sources. Of the video camera's an
    // interface arrives, so the service finds the camera at that arrival too, and asks again.
    enum class Listed { AsVideoCamera, AsCapture };
    Listed listed = Listed::AsVideoCamera;
};

// The symbolic links of one camera's device interfaces, as Windows writes them.
class DeviceLinks {
  public:
    explicit DeviceLinks(std::size_t camera, const LinkStyle& style = {});

    // Running: the USB device, and the three ways in which its video function shows.
    [[nodiscard]] const std::wstring& RunningUsb() const { return runningUsb_; }
    [[nodiscard]] const std::wstring& SensorCamera() const { return sensorCamera_; }
    [[nodiscard]] const std::wstring& VideoCamera() const { return videoCamera_; }
    [[nodiscard]] const std::wstring& Capture() const { return capture_; }
    // In DFU mode: one interface, the USB device; in upper case where Windows writes it so.
    [[nodiscard]] const std::wstring& DfuUsb() const { return dfuUsb_; }

  private:
    std::wstring runningUsb_;
    std::wstring sensorCamera_;
    std::wstring videoCamera_;
    std::wstring capture_;
    std::wstring dfuUsb_;
};

// The link as an event writes it.
[[nodiscard]] std::wstring Announced(std::wstring link, LinkStyle::Case style);

// Links are compared without regard to case.
[[nodiscard]] bool SameLink(std::wstring_view left, std::wstring_view right);

}  // namespace lab::rig
