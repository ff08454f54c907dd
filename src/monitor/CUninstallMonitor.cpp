#include "monitor/CUninstallMonitor.h"

#include "win32/HResultFromWin32.h"
#include "win32/NarrowText.h"
#include "win32/UniqueHandle.h"

#include <array>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr DWORD kSettleTimeMs = 1000;
constexpr DWORD kWatchPeriodMs = 100;
constexpr HRESULT kNoCameraInstance = static_cast<HRESULT>(0x80630501);

constexpr GUID kSensorCameraClass{
    0x24E552D7, 0x6523, 0x47F7, {0xA6, 0x47, 0xD3, 0x46, 0x5B, 0xF1, 0xF5, 0xCA}};
constexpr const wchar_t* kDeviceClassesKey = L"SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\";
constexpr const wchar_t* kParametersSuffix = L"\\#GLOBAL\\Device Parameters";
constexpr const wchar_t* kGroupNameValue = L"FSSensorGroupName";
constexpr std::wstring_view kFamilyText = L"Morrow KV400 Cameras";

// Deliberately not the name under which the program installs itself ("VeyraCameraDfuService").
constexpr const wchar_t* kServiceName = L"VeyraCameraDFU";

constexpr DWORD kClassNameCapacity = 260;
constexpr DWORD kSubkeyNameCapacity = 255;
constexpr std::size_t kClassTextCapacity = 78;

std::wstring SensorCameraClassKey() {
    const GUID& id = kSensorCameraClass;
    std::array<wchar_t, kClassTextCapacity> text{};
    std::swprintf(text.data(), text.size(), L"{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}",
                  static_cast<unsigned>(id.Data1), id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2],
                  id.Data4[3], id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    return std::wstring(kDeviceClassesKey) + text.data();
}

// Keys opened here are deliberately never closed.
HRESULT OpenKey(HKEY parent, const std::wstring& path, REGSAM access, HKEY& opened) {
    return win32::HResultFromWin32(RegOpenKeyExW(parent, path.c_str(), 0, access, &opened));
}

HRESULT CountSubkeys(HKEY key, DWORD& count) {
    std::array<wchar_t, kClassNameCapacity> className{};
    DWORD classNameLength = kClassNameCapacity;
    return win32::HResultFromWin32(RegQueryInfoKeyW(key, className.data(), &classNameLength, nullptr, &count,
                                                    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                    nullptr));
}

HRESULT ReadGroupName(HKEY parameters, std::wstring& groupName) {
    DWORD size = 0;
    HRESULT result = win32::HResultFromWin32(
        RegGetValueW(parameters, nullptr, kGroupNameValue, RRF_RT_REG_SZ, nullptr, nullptr, &size));
    if (FAILED(result)) {
        return result;
    }
    std::vector<wchar_t> text(size + std::size_t{1});
    result = win32::HResultFromWin32(
        RegGetValueW(parameters, nullptr, kGroupNameValue, RRF_RT_REG_SZ, nullptr, text.data(), &size));
    if (FAILED(result)) {
        return result;
    }
    groupName = text.data();
    return S_OK;
}

// Runs a command of the system's shell on a thread of its own; the future waits for it at its end.
std::future<int> RunAside(const std::string& command) {
    return std::async(std::launch::async, [command] { return std::system(command.c_str()); });
}

}  // namespace

CUninstallMonitor::CUninstallMonitor(StopRequest requestStop) : requestStop_(std::move(requestStop)) {}

CUninstallMonitor::~CUninstallMonitor() {
    std::unique_lock guard(lock_);
    watchThreadEnded_.wait(guard, [this] { return watchThreads_ == 0; });
}

void CUninstallMonitor::Check() {
    const std::scoped_lock guard(lock_);
    if (!running_) {
        Sleep(kSettleTimeMs);
    }
    if (Scan() != S_OK) {
        running_ = false;
        StopAndDelete();
        return;
    }
    StartWatching();
}

void CUninstallMonitor::Stop() {
    const std::scoped_lock guard(lock_);
    running_ = false;
}

HRESULT CUninstallMonitor::Scan() const {
    HKEY classKey = nullptr;
    HRESULT result = OpenKey(HKEY_LOCAL_MACHINE, SensorCameraClassKey(), KEY_READ, classKey);
    if (FAILED(result)) {
        return result;
    }
    DWORD count = 0;
    result = CountSubkeys(classKey, count);
    if (FAILED(result)) {
        return result;
    }
    for (DWORD index = 0; index < count; ++index) {
        std::array<wchar_t, kSubkeyNameCapacity> name{};
        DWORD nameLength = kSubkeyNameCapacity;
        if (RegEnumKeyExW(classKey, index, name.data(), &nameLength, nullptr, nullptr, nullptr, nullptr) <
            0) {
            continue;
        }
        const std::wstring parametersPath = std::wstring(name.data()) + kParametersSuffix;

        // One instance without parameters ends the whole scan: deliberate.
        HKEY parameters = nullptr;
        result = OpenKey(classKey, parametersPath, KEY_READ, parameters);
        if (FAILED(result)) {
            return result;
        }
        std::wstring groupName;
        result = ReadGroupName(parameters, groupName);
        if (FAILED(result)) {
            return result;
        }
        if (groupName.find(kFamilyText) != std::wstring::npos) {
            HKEY notified = nullptr;
            return OpenKey(classKey, parametersPath, KEY_NOTIFY, notified);
        }
    }
    return kNoCameraInstance;
}

void CUninstallMonitor::StartWatching() {
    watchThread_ = std::make_shared<std::thread>([this] { Watch(); });
    ++watchThreads_;
    running_ = true;
    watchThread_->detach();
}

void CUninstallMonitor::Watch() {
    // Check still holds the lock when it starts this thread, so nothing happens here before it has returned.
    std::unique_lock guard(lock_);
    WaitForChange(guard);
    --watchThreads_;
    watchThreadEnded_.notify_all();
}

void CUninstallMonitor::WaitForChange(std::unique_lock<std::mutex>& guard) {
    const HANDLE changed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (changed == nullptr) {
        return;
    }
    if (RegNotifyChangeKeyValue(watchedKey_, TRUE, REG_NOTIFY_CHANGE_NAME, changed, TRUE) != ERROR_SUCCESS) {
        return;  // deliberately without closing the event
    }
    bool signalled = false;
    while (running_ && !signalled) {
        guard.unlock();
        signalled = WaitForSingleObject(changed, kWatchPeriodMs) == WAIT_OBJECT_0;
        guard.lock();
    }
    RegCloseKey(watchedKey_);
    watchedKey_ = nullptr;
    CloseHandle(changed);
    if (running_) {
        StopAndDelete();
    }
    watchThread_.reset();
}

void CUninstallMonitor::StopAndDelete() {
    const std::string serviceName = win32::NarrowText(kServiceName);
    const std::string stopCommand = "sc stop " + serviceName;
    const std::string deleteCommand = "sc delete " + serviceName;
    requestStop_();
    // Nothing orders the two commands, and nobody reads their results: the futures only keep their tasks
    // until these end.
    stopResult_ = RunAside(stopCommand);
    deleteResult_ = RunAside(deleteCommand);
}
