#pragma once

#include <windows.h>

#include <cstdint>

#include "lab/camera/VirtualCamera.h"

namespace lab::rig {

// The last error with which WinUSB reports the end of a transfer; 0 for success. Disconnected: the device
// left during the transfer.
[[nodiscard]] DWORD WinUsbError(TransferEnd end);
// The same for a transfer on a device that left so long ago: for half a second Windows is still taking it
// away, then there is no such device.
[[nodiscard]] DWORD GoneError(std::uint64_t leftForMs);
// The result with which the camera driver's property handler reports it.
[[nodiscard]] HRESULT PropertyResult(TransferEnd end);

}  // namespace lab::rig
