#pragma once

#include "check/MachineState.h"

namespace check {

// Asks the service control manager, and looks at the program that it would start. Needs no more rights than
// every user has.
[[nodiscard]] ServiceState QueryService();

// Whether the service is stopped or not there, so that nobody but the caller opens its devices. Asked anew at
// each call; false when it cannot be told.
[[nodiscard]] bool ServiceLeavesDevicesAlone();

}  // namespace check
