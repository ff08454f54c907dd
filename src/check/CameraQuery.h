#pragma once

#include "check/MachineState.h"

namespace check {

// Lists the cameras that Windows offers, opens each as the service does at an arrival, and asks those with
// the firmware extension unit for their version. Takes up to 2.5 s, and what its transfers take, for a camera
// that does not answer. COM has to be initialised; everything is closed again on return.
[[nodiscard]] CamerasState QueryCameras();

}  // namespace check
