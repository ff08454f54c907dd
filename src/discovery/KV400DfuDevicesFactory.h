#pragma once

#include "diagnostics/DfuLogger.h"
#include "discovery/IDfuDevicesFactory.h"

// Finds the cameras of the KV400 family that are in DFU mode.
class KV400DfuDevicesFactory final : public IDfuDevicesFactory, public DfuLogger {
  public:
    // `logStream`, possibly null, is handed to every device made.
    explicit KV400DfuDevicesFactory(std::ostream* logStream);

    [[nodiscard]] std::vector<std::shared_ptr<IDfuDevice>> GetDevices(DWORD timeoutMs) override;
};
