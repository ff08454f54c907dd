#pragma once

#include <windows.h>

#include <cstdint>

#include "lab/rig/bus/InterfaceEvent.h"

namespace lab::rig {

// How a burst went.
struct BurstResult {
    std::uint64_t events = 0;
    double seconds = 0;     // from the first event to the last one's end
    double handlingUs = 0;  // the mean time in the handler
    double longestUs = 0;
};

// One device event over and over, at a fixed rate: how a service does when very much happens on the machine.
struct EventBurst {
    InterfaceEvent event;
    std::uint64_t count = 0;
    std::uint64_t perSecond = 1;

    // Hands every event to the handler when it is due, or as soon after that as the handler has returned from
    // the one before.
    [[nodiscard]] BurstResult Deliver(LPHANDLER_FUNCTION_EX handler, void* context) const;
};

}  // namespace lab::rig
