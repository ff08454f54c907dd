#pragma once

#include <cstddef>
#include <vector>

#include "lab/rig/bus/InterfaceEvent.h"

namespace lab::rig {

// The DEV_BROADCAST_DEVICEINTERFACE_W that a service's handler is given for the event.
[[nodiscard]] std::vector<std::byte> BroadcastRecord(const InterfaceEvent& event);

}  // namespace lab::rig
