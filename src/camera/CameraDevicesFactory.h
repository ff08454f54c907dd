#pragma once

#include "camera/ICameraDeviceFactory.h"

#include <memory>
#include <vector>

// Lists the cameras that Media Foundation offers. Each source is offered to the specialised factories in
// order, and becomes a plain camera when none takes it.
class CameraDevicesFactory {
  public:
    // `logStream`, not owned and possibly null, is handed to every camera made.
    explicit CameraDevicesFactory(std::ostream* logStream);

    // The cameras in the order found: sensor cameras first, then every video capture source, so that one that
    // Windows exposes both ways is listed twice. A source that no factory can open is left out; a failing
    // enumeration call ends the enumeration with what was found so far.
    [[nodiscard]] std::vector<std::shared_ptr<ICameraDevice>> Enumerate();

  private:
    [[nodiscard]] std::shared_ptr<ICameraDevice> CreateCamera(IMFActivate* activation);

    std::ostream* logStream_;
    std::vector<std::shared_ptr<ICameraDeviceFactory>> specialisedFactories_;
    std::shared_ptr<ICameraDeviceFactory> fallbackFactory_;
};
