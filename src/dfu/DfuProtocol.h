#pragma once

#include <cstdint>

// Numbers of the USB DFU 1.1 standard that the engine uses.

namespace dfu {

// bState of GETSTATUS, and the answer to GETSTATE.
enum class DFU_STATE : std::uint8_t {
    dfuIDLE = 2,
    dfuDNLOAD_IDLE = 5,
    dfuMANIFEST_WAIT_RESET = 8,
    dfuERROR = 10,
};

// bmRequestType: class request to an interface, by direction.
inline constexpr std::uint8_t kClassOut = 0x21;
inline constexpr std::uint8_t kClassIn = 0xA1;

// bRequest. CLRSTATUS (4) and ABORT (6) are never sent: a device in an error state is left as it is.
inline constexpr std::uint8_t kDetach = 0;
inline constexpr std::uint8_t kDnload = 1;
inline constexpr std::uint8_t kUpload = 2;
inline constexpr std::uint8_t kGetStatus = 3;
inline constexpr std::uint8_t kGetState = 5;

inline constexpr std::uint8_t kStatusOk = 0;
inline constexpr std::uint8_t kStatusErrUnknown = 14;

}  // namespace dfu
