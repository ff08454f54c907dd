#include "camera/CameraDevice.h"

#include "camera/MediaFoundation.h"

#include <memory>
#include <utility>

using Microsoft::WRL::ComPtr;

namespace {

struct CoTaskMemDeleter {
    void operator()(void* memory) const { CoTaskMemFree(memory); }
};

HRESULT ReadText(IMFActivate& activation, REFGUID attribute, std::wstring& text) {
    WCHAR* allocated = nullptr;
    UINT32 length = 0;
    const HRESULT result = activation.GetAllocatedString(attribute, &allocated, &length);
    const std::unique_ptr<WCHAR, CoTaskMemDeleter> owner(allocated);
    if (FAILED(result)) {
        return result;
    }
    if (allocated != nullptr) {
        text.assign(allocated, length);
    }
    return result;
}

}  // namespace

CameraDevice::CameraDevice(std::wstring friendlyName) : friendlyName_(std::move(friendlyName)) {}

CameraDevice::~CameraDevice() {
    if (mediaSource_) {
        mediaSource_->Shutdown();
    }
}

bool CameraDevice::IsUpdatable() const {
    return false;
}

HRESULT CameraDevice::UpdateFirmware(const wchar_t*) {
    return E_FAIL;
}

HRESULT CameraDevice::EnterDfuMode() {
    return E_FAIL;
}

HRESULT CameraDevice::SetDfuModeDisabled() {
    return E_FAIL;
}

HRESULT CameraDevice::SetDfuModeAuto() {
    return E_FAIL;
}

HRESULT CameraDevice::SetDfuModeServiceControlled() {
    return E_FAIL;
}

std::wstring CameraDevice::GetFriendlyName() const {
    return friendlyName_;
}

std::wstring CameraDevice::GetSymbolicLink() const {
    return symbolicLink_;
}

std::wstring CameraDevice::GetFirmwareVersion() const {
    return L"No FW version";
}

std::wstring CameraDevice::GetDescription(bool withSymbolicLink) const {
    std::wstring description = GetFriendlyName();
    if (IsUpdatable()) {
        description += L" (FW Version: " + GetFirmwareVersion() + L")";
    }
    if (withSymbolicLink) {
        description += L", Symbolic link: " + GetSymbolicLink();
    }
    return description;
}

bool CameraDevice::QueryA() const {
    return true;
}

bool CameraDevice::QueryB() const {
    return false;
}

HRESULT CameraDevice::Open(ComPtr<IMFActivate> activation) {
    HRESULT result =
        ReadText(*activation.Get(), MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, symbolicLink_);
    if (FAILED(result)) {
        return result;
    }
    result = ReadText(*activation.Get(), MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME, friendlyName_);
    if (FAILED(result)) {
        return result;
    }

    ComPtr<IMFAttributes> attributes;
    result = MFCreateAttributes(attributes.GetAddressOf(), 2);
    if (FAILED(result)) {
        return result;
    }
    result = attributes->SetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE,
                                 MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID);
    if (FAILED(result)) {
        return result;
    }
    result =
        attributes->SetString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, symbolicLink_.c_str());
    if (FAILED(result)) {
        return result;
    }

    result = MFCreateDeviceSourceActivate(attributes.Get(), activation_.ReleaseAndGetAddressOf());
    if (FAILED(result) || !activation_) {
        return E_FAIL;
    }
    result = activation_->ActivateObject(IID_IMFMediaSource,
                                         reinterpret_cast<void**>(mediaSource_.ReleaseAndGetAddressOf()));
    if (FAILED(result)) {
        return result;
    }
    return mediaSource_ ? S_OK : E_FAIL;
}
