#pragma once

#include "check/MachineState.h"

namespace check {

// What stands there, and what the service makes of it.
[[nodiscard]] UpdateModeState QueryUpdateMode();

}  // namespace check
