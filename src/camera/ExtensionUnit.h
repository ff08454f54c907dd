#pragma once

#include <guiddef.h>

// The firmware extension unit of the family's cameras, and the one of its controls that carries firmware
// commands.

inline constexpr GUID kExtensionUnit{
    0xC9606CCB, 0x594C, 0x4D25, {0xAF, 0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95}};
inline constexpr unsigned long kCommandControl = 1;
