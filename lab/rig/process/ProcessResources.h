#pragma once

#include <windows.h>

#include <cstdint>

namespace lab::rig {

// What this process holds.
struct ProcessResources {
    DWORD handles = 0;
    DWORD threads = 0;
    std::uint64_t privateBytes = 0;

    // As it is now. Throws std::runtime_error when the system does not tell.
    [[nodiscard]] static ProcessResources Now();
};

}  // namespace lab::rig
