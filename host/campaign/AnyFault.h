#pragma once

#include "lab/camera/Fault.h"

#include <cstdint>

namespace campaign {

// Numbers that a fault is made of, each of them anything.
struct FaultNumbers {
    std::uint32_t where = 0;
    std::uint32_t what = 0;
    unsigned skip = 0;
    unsigned count = 0;
    std::uint32_t value = 0;
    // The moment, and whether a refusal also sets the error.
    std::uint32_t how = 0;
};

// A fault that can strike: what does not go with its place or its moment strikes in another way. What means
// nothing for it is 0, so that the id of a trial says all of it.
[[nodiscard]] lab::Fault AnyFault(const FaultNumbers& numbers);

}  // namespace campaign
