#pragma once

#include "lab/camera/CameraSettings.h"

#include <cstdint>
#include <vector>

namespace lab {

// The binary device object store: what a device can do besides what its device descriptor tells.

// At super speed the USB 2.0 extension and the super speed capability, which that speed demands. With a set
// of MS OS 2.0 descriptors (`msOsSetLength` bytes; 0: without) the platform capability that announces it.
[[nodiscard]] std::vector<std::uint8_t> MakeBinaryObjectStore(Speed speed, std::uint16_t msOsSetLength);

}  // namespace lab
