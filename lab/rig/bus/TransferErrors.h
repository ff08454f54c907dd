#pragma once

#include <windows.h>

#include "lab/camera/VirtualCamera.h"

namespace lab::rig {

// The last error with which WinUSB reports the end of a transfer; 0 for success. A time-out is reported at
// once: the five seconds that WinUSB waits are not waited here.
[[nodiscard]] DWORD WinUsbError(TransferEnd end);
// The result with which the camera driver's property handler reports it.
[[nodiscard]] HRESULT PropertyResult(TransferEnd end);

}  // namespace lab::rig
