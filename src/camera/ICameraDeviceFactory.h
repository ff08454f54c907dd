#pragma once

#include "camera/ICameraDevice.h"

#include <memory>

// Makes cameras of one kind out of Media Foundation's activation objects.
class ICameraDeviceFactory {
  public:
    ICameraDeviceFactory() = default;
    ICameraDeviceFactory(const ICameraDeviceFactory&) = delete;
    ICameraDeviceFactory& operator=(const ICameraDeviceFactory&) = delete;
    virtual ~ICameraDeviceFactory() = default;

    // The opened camera, or null when this factory does not make one of it. The reference given is released
    // on return.
    [[nodiscard]] virtual std::shared_ptr<ICameraDevice> Create(
        Microsoft::WRL::ComPtr<IMFActivate> activation) = 0;
};
