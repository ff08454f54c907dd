#pragma once

#include "check/MachineState.h"

namespace check {

// Lists the cameras that Windows offers, opens each as the service does at an arrival, and asks those with
// the firmware extension unit for their version. For a camera that does not answer it takes 2 s and what five
// transfers take, which may be 5 s each. COM has to be initialised; everything is closed again on return.
[[nodiscard]] CamerasState QueryCameras();

}  // namespace check
