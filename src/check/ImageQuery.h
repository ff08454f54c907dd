#pragma once

#include "check/MachineState.h"

#include <string>

namespace check {

// The firmware image where the service looks for it.
[[nodiscard]] ImageState QueryImage();

// An image that lies anywhere.
[[nodiscard]] ImageState QueryImage(const std::wstring& path);

}  // namespace check
