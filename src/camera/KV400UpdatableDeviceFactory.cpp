#include "camera/KV400UpdatableDeviceFactory.h"

#include "camera/KV400UpdatableDevice.h"

#include <utility>

std::shared_ptr<ICameraDevice> KV400UpdatableDeviceFactory::Create(
    Microsoft::WRL::ComPtr<IMFActivate> activation) {
    auto camera = std::make_shared<KV400UpdatableDevice>();
    if (camera->Open(std::move(activation)) != S_OK) {
        return nullptr;
    }
    return camera;
}
