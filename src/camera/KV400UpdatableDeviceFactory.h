#pragma once

#include "camera/ICameraDeviceFactory.h"

// Makes cameras of the KV400 family; a camera without the firmware extension unit is not one.
class KV400UpdatableDeviceFactory final : public ICameraDeviceFactory {
  public:
    [[nodiscard]] std::shared_ptr<ICameraDevice> Create(
        Microsoft::WRL::ComPtr<IMFActivate> activation) override;
};
