#pragma once

#include <windows.h>

#include <cstdint>

namespace lab::rig {

// What this process holds.
struct ProcessResources {
    DWORD handles = 0;
    DWORD threads = 0;
    std::uint64_t privateBytes = 0;
    // Of these, what is committed in the allocations in which the system keeps the threads' own blocks (TEB):
    // those of the threads that are there, and those that wait for the next one.
    std::uint64_t threadBlockBytes = 0;

    // As it is now. Throws std::runtime_error when the system does not tell.
    [[nodiscard]] static ProcessResources Now();
};

}  // namespace lab::rig
