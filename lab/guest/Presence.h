#pragma once

#include <optional>

#include <nlohmann/json_fwd.hpp>

#include "lab/guest/Uevent.h"

namespace lab::guest {

// What a uevent says of the presence of a USB device, as an event for the host; nothing for any other uevent.
// `change` is "arrival" when the kernel has read its descriptors, "ready" when it is configured and its
// interfaces have met their drivers, "removal" when it is gone.
[[nodiscard]] std::optional<nlohmann::json> PresenceEvent(const Uevent& uevent);

}  // namespace lab::guest
