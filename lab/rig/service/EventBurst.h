#pragma once

#include <windows.h>

#include <cstdint>

#include <nlohmann/json.hpp>

#include "lab/rig/bus/InterfaceEvent.h"

namespace lab::rig {

// One device event over and over, at a fixed rate: how a service does when very much happens on the machine.
struct EventBurst {
    InterfaceEvent event;
    std::uint64_t count = 0;
    std::uint64_t perSecond = 1;

    // Hands every event to the handler when it is due, or as soon after that as the handler has returned from
    // the one before. Tells `events`, `seconds` from the first event to the last one's end, `handling_us`
    // (the mean time in the handler) and `longest_us`.
    [[nodiscard]] nlohmann::json Deliver(LPHANDLER_FUNCTION_EX handler, void* context) const;
};

}  // namespace lab::rig
