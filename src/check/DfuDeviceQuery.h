#pragma once

#include "check/MachineState.h"

namespace check {

// Lists the cameras that are present in DFU mode. Those are opened, and their descriptors read, only while
// the service is stopped or not installed: WinUSB lets one program open a device, and the service tries once.
// No alternate setting is selected, and no request of the USB DFU 1.1 standard is sent.
[[nodiscard]] DfuDevicesState QueryDfuDevices();

}  // namespace check
