#include "camera/KV400UpdatableDevice.h"

#include "camera/ExtensionUnit.h"
#include "camera/FirmwareCommandPipe.h"
#include "discovery/KV400DfuDevicesFactory.h"
#include "service/UpdateModeSetting.h"  // a leaf with a library of its own: the camera writes the mode
#include "win32/BinaryFile.h"
#include "win32/NarrowText.h"
#include "win32/UnquotedPath.h"
#include "win32/VersionText.h"

#include <utility>

#include <rpc.h>

using Microsoft::WRL::ComPtr;

namespace {

constexpr std::uint32_t kReadInformationBlock = 0x10;
constexpr std::uint32_t kSwitchToDfuMode = 0x1E;
constexpr std::size_t kVersionOffset = 12;  // four bytes, most significant last

constexpr int kInformationAttempts = 5;
constexpr DWORD kInformationPauseMs = 500;
constexpr DWORD kDfuDeviceTimeoutMs = 10000;

// Lower case, without braces; empty when the system gives none.
std::wstring GuidText(GUID guid) {
    RPC_WSTR allocated = nullptr;
    if (UuidToStringW(&guid, &allocated) != RPC_S_OK) {
        return {};
    }
    std::wstring text(reinterpret_cast<const wchar_t*>(allocated));
    RpcStringFreeW(&allocated);
    return text;
}

}  // namespace

KV400UpdatableDevice::KV400UpdatableDevice() : CameraDevice(L"KV400") {}

KV400UpdatableDevice::~KV400UpdatableDevice() = default;

bool KV400UpdatableDevice::IsUpdatable() const {
    return GetSymbolicLink().find(GuidText(kCaptureCategory)) == std::wstring::npos;
}

HRESULT KV400UpdatableDevice::UpdateFirmware(const wchar_t* imagePath) {
    // The address of the text, not the text: deliberate, the message has always had this form.
    LogLine("Updating firmware to ", static_cast<const void*>(imagePath));
    if (!win32::OpenBinaryFile(win32::UnquotedPath(imagePath)).is_open()) {
        LogLine("Failed to open file ", win32::NarrowText(imagePath));
        return E_FAIL;
    }
    HRESULT result = SetDfuModeDisabled();
    if (FAILED(result)) {
        LogText("Failed disable automatic DFU\n");
        return result;
    }
    EnterDfuMode();

    KV400DfuDevicesFactory factory(LogStream());
    const auto devices = factory.GetDevices(kDfuDeviceTimeoutMs);
    if (devices.empty()) {
        LogLine("No DFU device was connected ");
        return E_FAIL;
    }
    if (devices.size() > 1) {
        LogText("More than one DFU device was found, updating all\n");
    }
    for (const auto& device : devices) {
        // The path as it was given, quotes included: the device takes them off itself.
        result = device->Update(imagePath);
        if (FAILED(result)) {
            LogLine("Failed to update device ", win32::NarrowText(device->GetName()));
        }
    }
    return result;
}

HRESULT KV400UpdatableDevice::EnterDfuMode() {
    if (pipe_) {
        pipe_->SendCommand(kSwitchToDfuMode, nullptr, 0, 1, 0, 0, 0);
    }
    return S_OK;
}

HRESULT KV400UpdatableDevice::SetDfuModeDisabled() {
    return UpdateModeSetting(LogStream()).WriteUpdateMode(kUpdateModeDisabled);
}

HRESULT KV400UpdatableDevice::SetDfuModeAuto() {
    return UpdateModeSetting(LogStream()).WriteUpdateMode(kUpdateModeAuto);
}

HRESULT KV400UpdatableDevice::SetDfuModeServiceControlled() {
    return UpdateModeSetting(LogStream()).WriteUpdateMode(kUpdateModeServiceControlled);
}

std::wstring KV400UpdatableDevice::GetFirmwareVersion() const {
    return win32::VersionText(std::span(informationBlock_).subspan<kVersionOffset, 4>());
}

bool KV400UpdatableDevice::QueryA() const {
    return false;
}

HRESULT KV400UpdatableDevice::Open(ComPtr<IMFActivate> activation) {
    HRESULT result = CameraDevice::Open(std::move(activation));
    if (FAILED(result)) {
        return result;
    }
    extensionUnit_ = ExtensionUnitKsControl::Create();
    if (!extensionUnit_) {
        return E_FAIL;
    }
    result = extensionUnit_->Attach(MediaSource());
    if (FAILED(result)) {
        return result;
    }
    ReadInformationBlock();
    return S_OK;
}

void KV400UpdatableDevice::ReadInformationBlock() {
    for (int attempt = 1; attempt <= kInformationAttempts; ++attempt) {
        pipe_ = std::make_shared<FirmwareCommandPipe>(extensionUnit_, kExtensionUnit, kCommandControl);
        if (SUCCEEDED(pipe_->SendCommandAndRead(informationBlock_.data(), kReadInformationBlock,
                                                informationBlock_.size(), 0, 0, 0, 0))) {
            return;
        }
        if (attempt < kInformationAttempts) {
            Sleep(kInformationPauseMs);
        }
    }
}
