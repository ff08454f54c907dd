#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

#include "lab/guest/FileDescriptor.h"

namespace lab::guest {

// A device as usbfs shows it to programs: its requests go out on the device's own bus. Interfaces stay
// claimed as long as the node is open. Every call throws std::system_error with the kernel's error.
class UsbfsNode {
  public:
    // The eight bytes of a setup packet, in the order in which they go over the bus.
    using Setup = std::array<std::uint8_t, 8>;
    // usbfs takes no control transfer with more data than a page of memory has.
    static constexpr std::size_t kMostControlBytes = 4096;

    explicit UsbfsNode(const std::filesystem::path& node);

    // One control transfer on the default pipe. `data` is as long as wLength says: it is sent, or filled from
    // the front. Returns how many bytes went over. ETIMEDOUT when the device does not answer in time, EPIPE
    // for a stall, EPROTO and EILSEQ for a broken bus, ESHUTDOWN or ENODEV when it is gone.
    std::size_t Control(const Setup& setup, std::span<std::uint8_t> data, std::chrono::milliseconds limit);

    void Claim(unsigned interface);
    void Release(unsigned interface);
    void SetInterface(unsigned interface, unsigned setting);
    // Resets the device's port. A device that comes back as another one is enumerated anew: ENODEV.
    void Reset();

  private:
    FileDescriptor node_;
};

// wLength of a setup packet, and whether the device is to send that much.
[[nodiscard]] std::size_t LengthOf(const UsbfsNode::Setup& setup);
[[nodiscard]] bool IsFromDevice(const UsbfsNode::Setup& setup);

}  // namespace lab::guest
