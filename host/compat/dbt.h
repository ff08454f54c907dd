#pragma once

#include <windows.h>

inline constexpr DWORD DBT_DEVICEARRIVAL = 0x8000;
inline constexpr DWORD DBT_DEVICEREMOVECOMPLETE = 0x8004;
