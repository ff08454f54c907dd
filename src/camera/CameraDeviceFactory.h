#pragma once

#include "camera/ICameraDeviceFactory.h"

// Makes plain cameras.
class CameraDeviceFactory final : public ICameraDeviceFactory {
  public:
    [[nodiscard]] std::shared_ptr<ICameraDevice> Create(
        Microsoft::WRL::ComPtr<IMFActivate> activation) override;
};
