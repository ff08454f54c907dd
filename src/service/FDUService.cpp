#include "service/FDUService.h"

#include "camera/CameraDevicesFactory.h"
#include "dfu/DfuCommand.h"
#include "dfu/WinUsbDfuConnection.h"
#include "diagnostics/TraceMessageGroups.h"
#include "diagnostics/TraceProvider.h"
#include "diagnostics/TraceScope.h"
#include "discovery/WatchedProducts.h"
#include "prompt/ToastController.h"
#include "prompt/ToastControllerLaunch.h"
#include "service/ImageVersion.h"
#include "service/UpdateModeSetting.h"
#include "win32/BinaryFile.h"
#include "win32/HResultFromWin32.h"
#include "win32/NarrowText.h"
#include "win32/SystemDirectory.h"
#include "win32/VersionText.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cwchar>
#include <iostream>
#include <string_view>

#include <objbase.h>

namespace {

enum UpdateServiceMessage : USHORT {
    kServiceConstructed = 10,
    kComSecurityFailed = 11,
    kToastControllerCheckFailed = 12,
    kNoDfuDevice = 18,
    kDfuDeviceFound = 19,
    kDfuDeviceNotOpened = 20,
    kNoEndpoint = 21,
    kCameraVersionUnknown = 22,
    kCameraVersion = 23,
    kStopping = 24,
    kImageNotOpened = 25,
    kImageNotRead = 26,
    kImageVersion = 27,
};

constexpr const wchar_t* kWatcherName = L"dfu";
constexpr DWORD kArrivalTimeoutMs = 100;
constexpr std::size_t kFwStatusSize = 68;

constexpr std::wstring_view kUnknownVersion = L"0.0.0.0";
constexpr DWORD kWindowsDirectoryCapacity = 520;

bool IsServiceControlled() {
    return UpdateModeSetting(nullptr).IsServiceControlled() == S_OK;
}

// The record's symbolic link: ends at its terminator, or where the record ends.
std::wstring_view SymbolicLink(const DEV_BROADCAST_DEVICEINTERFACE_W& broadcast) {
    constexpr std::size_t kLinkOffset = offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name);
    const std::size_t capacity =
        broadcast.dbcc_size > kLinkOffset ? (broadcast.dbcc_size - kLinkOffset) / sizeof(wchar_t) : 0;
    return {broadcast.dbcc_name, wcsnlen(broadcast.dbcc_name, capacity)};
}

// The single-byte function of the C library, as ever: characters beyond a byte are compared as they are.
wchar_t UpperCase(wchar_t character) {
    return character <= 0xFF ? static_cast<wchar_t>(std::toupper(character)) : character;
}

bool EqualsFolded(std::wstring_view left, std::wstring_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](wchar_t a, wchar_t b) { return UpperCase(a) == UpperCase(b); });
}

// The last CoUninitialize takes the code of COM's in-process objects away. The pending camera, the sink and
// the toast controller's proxy are released after it, so the apartment is kept until the process ends. It
// fails only for want of memory; a process that begins so does not get to its end in order.
void KeepApartment() {
    CO_MTA_USAGE_COOKIE neverGivenBack = nullptr;
    CoIncrementMTAUsage(&neverGivenBack);
}

}  // namespace

FDUService::FDUService()
    : DFUServiceBase(kServiceName, [this] { keepAlive_->RequestStop(); }),
      watcher_(kWatcherName, kVendorText, kFirstDfuProductText),
      pendingCamera_(std::make_shared<PendingCamera>()) {
    TraceProvider::Register();
    const auto scope = TraceScope::EnterWhenTraced("FDUService::FDUService", this);
    TraceProvider::Emit(TraceLevel::Information, kUpdateServiceTraces, kServiceConstructed);
    watcher_.AddFilter(kVendorText, kSecondDfuProductText);
    keepAlive_ = std::make_shared<KeepAlive>();
    SetUpPrompt();
}

FDUService::~FDUService() {
    const auto scope = TraceScope::EnterWhenTraced("FDUService::~FDUService", this);
    keepAlive_.reset();
    pendingCamera_->store(nullptr);
}

void FDUService::SetUpPrompt() {
    if (SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
        KeepApartment();
    }
    HRESULT result = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                          RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    if (FAILED(result)) {
        CoUninitialize();
        TraceProvider::EmitCode(TraceLevel::Error, kUpdateServiceTraces, kComSecurityFailed,
                                static_cast<DWORD>(result));
        return;
    }
    result = CCheckToastCntrl();
    if (FAILED(result)) {
        CoUninitialize();
        TraceProvider::EmitCode(TraceLevel::Error, kUpdateServiceTraces, kToastControllerCheckFailed,
                                static_cast<DWORD>(result));
        return;
    }
    promptServer_ = std::make_shared<IToastCntrPtr>();
    if (FAILED(CreateToastController(*promptServer_))) {
        return;
    }
    promptClient_ = std::make_shared<CNotifyClient>(promptServer_);
    eventSink_ = std::make_shared<CSink>([pending = pendingCamera_] {
        if (const auto camera = pending->load()) {
            camera->EnterDfuMode();
        }
    });
    eventSink_->Advise(promptServer_);
}

HRESULT FDUService::CCheckToastCntrl() {
    const auto scope = TraceScope::EnterWhenTraced("FDUService::CCheckToastCntrl", this);
    return EnsureToastControllerRegistered();
}

void FDUService::OnStart(DWORD, wchar_t**) {
    const auto scope = TraceScope::EnterWhenTraced("FDUService::OnStart", this);
    WriteEventLogEntry(L"KV400CameraService::OnStart Enter", EVENTLOG_INFORMATION_TYPE);
    KeepAlive::Start(keepAlive_);
}

void FDUService::OnStop() {
    TraceProvider::Emit(TraceLevel::Information, kUpdateServiceTraces, kStopping);
    keepAlive_->RequestStop();
    keepAlive_->WaitUntilFinished();
    CoUninitialize();
}

HRESULT FDUService::OnCameraArrival(const DEV_BROADCAST_DEVICEINTERFACE_W& broadcast) {
    if (!IsServiceControlled()) {
        return ERROR_SERVICE_DISABLED;
    }
    const std::shared_ptr<ICameraDevice> camera = FindArrivedCamera(broadcast);
    if (!camera) {
        return S_OK;
    }
    const std::wstring cameraVersion = camera->GetFirmwareVersion();
    if (cameraVersion == kUnknownVersion) {
        TraceProvider::Emit(TraceLevel::Critical, kUpdateServiceTraces, kCameraVersionUnknown);
        return E_FAIL;
    }
    TraceProvider::EmitText(TraceLevel::Information, kUpdateServiceTraces, kCameraVersion,
                            win32::NarrowText(cameraVersion).c_str());

    std::wstring imageVersion;
    if (FAILED(ReadImageVersion(imageVersion))) {
        return S_OK;
    }
    // Different, not older: a camera with newer firmware than the image is prompted too, deliberately.
    if (cameraVersion == imageVersion) {
        return S_OK;
    }
    if (promptClient_) {
        promptClient_->ShowUpdatePrompt(cameraVersion, imageVersion);
    }
    pendingCamera_->store(camera);
    return S_OK;
}

std::shared_ptr<ICameraDevice> FDUService::FindArrivedCamera(
    const DEV_BROADCAST_DEVICEINTERFACE_W& broadcast) {
    // Not at construction: a static constructor may not start it.
    if (FAILED(mediaFoundation_.EnsureStarted())) {
        return nullptr;
    }
    const auto cameras = CameraDevicesFactory(&std::cout).Enumerate();
    const std::wstring_view link = SymbolicLink(broadcast);
    const auto arrived = std::find_if(cameras.begin(), cameras.end(), [link](const auto& camera) {
        return camera->IsUpdatable() && EqualsFolded(camera->GetSymbolicLink(), link);
    });
    return arrived != cameras.end() ? *arrived : nullptr;
}

HRESULT FDUService::OnUsbDeviceArrival() {
    if (!IsServiceControlled()) {
        return ERROR_SERVICE_DISABLED;
    }
    watcher_.Refresh();
    if (WaitForSingleObject(watcher_.ArrivalEvent(), kArrivalTimeoutMs) != WAIT_OBJECT_0) {
        TraceProvider::Emit(TraceLevel::Error, kUpdateServiceTraces, kNoDfuDevice);
        return E_NOINTERFACE;
    }
    TraceProvider::Emit(TraceLevel::Information, kUpdateServiceTraces, kDfuDeviceFound);
    // The event may be signalled and the list empty, since a removal signals it too: an empty path does not
    // open.
    const auto devices = watcher_.Devices();
    WinUsbDfuConnection connection(devices.empty() ? std::wstring() : devices.front().symbolicLink);
    if (!connection.IsOpened()) {
        TraceProvider::Emit(TraceLevel::Error, kUpdateServiceTraces, kDfuDeviceNotOpened);
        return win32::HResultFromWin32(ERROR_INVALID_HANDLE);
    }
    const auto endpoint = connection.AcquireEndpoint();
    if (!endpoint) {
        TraceProvider::Emit(TraceLevel::Error, kUpdateServiceTraces, kNoEndpoint);
        return E_NOINTERFACE;
    }
    const HRESULT result = DownloadImageTo(endpoint);
    connection.Close();
    return result;
}

HRESULT FDUService::DownloadImageTo(const std::shared_ptr<usb_core::IUsbControlEndpoint>& endpoint) {
    dfu::DfuCommand command(endpoint, kFwStatusSize, nullptr,
                            [this](std::int32_t value) { ReportProgress(value); });
    // Not the path of ReadImageVersion: both roads to the file are kept.
    const std::wstring imagePath = win32::SystemDirectory() + L"\\drivers\\KV400Firmware.bin";
    std::ifstream image = win32::OpenBinaryFile(imagePath, std::ios::ate);
    const std::streamoff imageSize = image.is_open() ? static_cast<std::streamoff>(image.tellg()) : -1;
    if (imageSize >= 0) {
        NotifyStart(static_cast<std::uint64_t>(imageSize), endpoint->GetMaxTransferSize());
    }
    HRESULT result = E_FAIL;
    try {
        result = command.UpdateFromFile(imagePath.c_str());
    } catch (...) {
        NotifyComplete();
        throw;
    }
    NotifyComplete();
    return result;
}

HRESULT FDUService::ReadImageVersion(std::wstring& versionText) {
    std::array<wchar_t, kWindowsDirectoryCapacity> windowsDirectory{};
    if (GetWindowsDirectoryW(windowsDirectory.data(), kWindowsDirectoryCapacity) == 0) {
        // Unchanged, and so positive: the camera pass goes on with an empty version text. Deliberate.
        return static_cast<HRESULT>(GetLastError());
    }
    const std::wstring imagePath =
        std::wstring(windowsDirectory.data()) + L"\\system32\\drivers\\KV400Firmware.bin";
    std::array<std::uint8_t, 4> version{};
    switch (ReadImageVersionBytes(imagePath, version)) {
        case ImageVersionRead::NotOpened:
            TraceProvider::Emit(TraceLevel::Critical, kUpdateServiceTraces, kImageNotOpened);
            return E_FAIL;
        case ImageVersionRead::NotRead:
            TraceProvider::Emit(TraceLevel::Critical, kUpdateServiceTraces, kImageNotRead);
            return E_FAIL;
        case ImageVersionRead::Done:
            break;
    }
    versionText = win32::VersionText(version);
    TraceProvider::EmitText(TraceLevel::Information, kUpdateServiceTraces, kImageVersion,
                            win32::NarrowText(versionText).c_str());
    return S_OK;
}

void FDUService::ReportProgress(std::int32_t value) const {
    if (promptClient_) {
        promptClient_->NotifyProgress(std::to_wstring(value));
    }
}

void FDUService::NotifyStart(std::uint64_t imageSize, std::uint16_t transferSize) const {
    if (promptClient_ && transferSize != 0) {
        promptClient_->NotifyStart(static_cast<std::uint32_t>(imageSize / transferSize));
    }
}

void FDUService::NotifyComplete() const {
    if (promptClient_) {
        (*promptServer_)->NotifyComplete();
    }
}
