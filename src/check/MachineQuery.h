#pragma once

#include "check/MachineState.h"

namespace check {

// Asks for everything that there is to know of this machine, on the calling thread. Changes nothing.
[[nodiscard]] MachineState QueryMachine();

}  // namespace check
