#pragma once

#include "lab/camera/UsbDevice.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lab::test {

// What came of a request to the host.
struct Reading {
    TransferEnd end = TransferEnd::Ok;
    std::vector<std::uint8_t> bytes = {};
};

// A camera on a port, the clock that it lives by, and what a host's USB stack does with it. Unless a method
// says otherwise the clock stands still during it.
class UsbHost {
  public:
    explicit UsbHost(CameraSettings settings = {});

    static constexpr std::uint8_t kAddress = 9;

    UsbDevice device;
    std::uint64_t nowMs = 5000;

    void Pass(std::uint64_t ms);

    // Any request; `length` bytes are read.
    Reading Get(std::uint8_t requestType, std::uint8_t request, std::uint16_t value, std::uint16_t index,
                std::uint16_t length);
    TransferEnd Set(std::uint8_t requestType, std::uint8_t request, std::uint16_t value, std::uint16_t index,
                    std::vector<std::uint8_t> data = {});

    Reading Descriptor(DescriptorType type, std::uint8_t index = 0, std::uint16_t length = 0xFFFF,
                       std::uint16_t language = 0);
    TransferEnd SetAddress(std::uint16_t address);
    TransferEnd SetConfiguration(std::uint16_t value);
    TransferEnd SetInterface(std::uint16_t number, std::uint16_t alternate);

    // Requests to a control of the video function (GET_CUR and so on).
    Reading GetVideo(UvcRequest request, std::uint16_t index, std::uint8_t control, std::uint16_t length);
    TransferEnd SetVideo(std::uint16_t index, std::uint8_t control, std::vector<std::uint8_t> data);

    // Resets, address and configuration, with nothing read. Whether the device is configured.
    bool Configure();
    // Plugs the camera in and goes to a state.
    void PlugIn(UsbState state);
    // Plugs the camera in, sends it to DFU mode and, once it is back, goes to a state. Takes detachMs +
    // enumerateMs.
    void PlugInDfuMode(UsbState state = UsbState::Configured);
};

}  // namespace lab::test
