#pragma once

#include <windows.h>

// The header of every property, method and event request of kernel streaming.
struct KSIDENTIFIER {
    GUID Set;
    ULONG Id;
    ULONG Flags;
};
using KSPROPERTY = KSIDENTIFIER;
using PKSPROPERTY = KSIDENTIFIER*;
using PKSMETHOD = KSIDENTIFIER*;
using PKSEVENT = KSIDENTIFIER*;

inline constexpr ULONG KSPROPERTY_TYPE_GET = 1;
inline constexpr ULONG KSPROPERTY_TYPE_SET = 2;

struct KSTOPOLOGY_CONNECTION {
    ULONG FromNode;
    ULONG FromNodePin;
    ULONG ToNode;
    ULONG ToNodePin;
};
