#pragma once

#include <windows.h>

#include <string>

namespace lab::rig {

// Something that the bus announces about one device interface.
struct InterfaceEvent {
    DWORD type = 0;  // DBT_DEVICEARRIVAL, DBT_DEVICEREMOVECOMPLETE, or what a scenario makes up
    GUID interfaceClass{};
    std::wstring link;
    // False for a made-up event: it goes to the service's control handler only.
    bool tellsWatchers = true;
};

}  // namespace lab::rig
