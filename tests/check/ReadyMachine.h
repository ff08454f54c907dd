#pragma once

#include "check/MachineState.h"

#include <string>

// A machine on which everything is as it should be, with no camera on it.
[[nodiscard]] check::MachineState ReadyMachine();

// A camera of the family, listed in both of its classes, with this firmware.
[[nodiscard]] check::CameraState CameraWith(const std::string& version);
