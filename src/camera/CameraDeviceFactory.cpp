#include "camera/CameraDeviceFactory.h"

#include "camera/CameraDevice.h"

#include <utility>

std::shared_ptr<ICameraDevice> CameraDeviceFactory::Create(Microsoft::WRL::ComPtr<IMFActivate> activation) {
    auto camera = std::make_shared<CameraDevice>();
    if (camera->Open(std::move(activation)) != S_OK) {
        return nullptr;
    }
    return camera;
}
