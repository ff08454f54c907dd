#pragma once

#include "check/MachineState.h"

namespace check {

// Reads how the toast controller is registered, looks at its program, and in which sessions that runs. Starts
// nothing.
[[nodiscard]] ToastControllerState QueryToastController();

}  // namespace check
