#pragma once

#include "lab/camera/UsbTypes.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace campaign {

// One thing that the service has asked a camera, and what came of it. What it points to lives as long as the
// call that it is handed over in.
struct Crossing {
    enum class What {
        CommandWrite,  // the extension unit's control is written
        CommandRead,   // and read back
        Descriptor,    // a descriptor is read through the driver
        SetInterface,  // an alternate setting is chosen
        Transfer,      // a control transfer to the DFU interface
    };

    What what = What::Transfer;
    std::size_t camera = 0;  // its number on the bus
    std::uint64_t beganMs = 0;
    std::uint64_t endedMs = 0;
    // Transfer: as it went out. Descriptor: its type. SetInterface: the setting in `value`, the interface in
    // `index`.
    lab::SetupPacket setup = {};
    std::span<const std::uint8_t> before = {};  // the buffer as the service has handed it over
    std::span<const std::uint8_t> after = {};   // the same when it got it back
    std::size_t transferred = 0;                // bytes of the data stage
    std::int32_t result = 0;                    // what the service was told, as an HRESULT
};

// Is told of each crossing when it is over. May throw: the exception goes through the service's code.
class ICrossingListener {
  public:
    ICrossingListener() = default;
    ICrossingListener(const ICrossingListener&) = delete;
    ICrossingListener& operator=(const ICrossingListener&) = delete;
    virtual ~ICrossingListener() = default;

    virtual void OnCrossing(const Crossing& crossing) = 0;
};

}  // namespace campaign
