#pragma once

#include "discovery/IDfuDevice.h"

#include <memory>
#include <vector>

// Hands out the cameras that are present in DFU mode.
class IDfuDevicesFactory {
  public:
    IDfuDevicesFactory() = default;
    IDfuDevicesFactory(const IDfuDevicesFactory&) = delete;
    IDfuDevicesFactory& operator=(const IDfuDevicesFactory&) = delete;
    virtual ~IDfuDevicesFactory() = default;

    // Waits up to `timeoutMs` for a device to be there, not at all with 0, and returns those that are;
    // possibly none.
    [[nodiscard]] virtual std::vector<std::shared_ptr<IDfuDevice>> GetDevices(DWORD timeoutMs) = 0;
};
