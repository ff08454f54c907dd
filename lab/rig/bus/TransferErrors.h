#pragma once

#include <windows.h>

#include <cstdint>

namespace lab::rig {

// The last error with which WinUSB reports a transfer on a device that left so long ago: for half a second
// Windows is still taking it away, then there is no such device. See WinUsbError() for the other ends.
[[nodiscard]] DWORD GoneError(std::uint64_t leftForMs);

}  // namespace lab::rig
