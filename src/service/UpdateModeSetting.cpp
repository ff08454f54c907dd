#include "service/UpdateModeSetting.h"

#include "win32/HResultFromWin32.h"
#include "win32/UniqueHandle.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace {

constexpr const wchar_t* kServicesKey = L"SYSTEM\\CurrentControlSet\\Services\\";
constexpr const wchar_t* kReadServiceName = L"VeyraCameraDFU";
constexpr const wchar_t* kWrittenKey = L"SYSTEM\\CurrentControlSet\\Services\\VeyraCameraDFU";
constexpr const wchar_t* kValueName = L"DFUAutoMode";

// "Service Controlled" with its terminator.
constexpr std::size_t kServiceControlledLength = 19;

}  // namespace

UpdateModeSetting::UpdateModeSetting(std::ostream* logStream) : DfuLogger(logStream) {}

HRESULT UpdateModeSetting::IsServiceControlled() const {
    const std::wstring keyPath = std::wstring(kServicesKey) + kReadServiceName;
    win32::UniqueRegistryKey key;
    LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_QUERY_VALUE, key.Receive());
    if (status != ERROR_SUCCESS) {
        return win32::HResultFromWin32(status);
    }

    // Zero-filled, so that a value stored without its terminator, as WriteUpdateMode does, reads as a
    // terminated text.
    std::array<wchar_t, kServiceControlledLength> text{};
    static_assert(sizeof text == 38);
    DWORD size = sizeof text;
    status = RegQueryValueExW(key.Get(), kValueName, nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()),
                              &size);
    if (status != ERROR_SUCCESS) {
        return win32::HResultFromWin32(status);
    }
    return std::equal(text.begin(), text.end(), kUpdateModeServiceControlled) ? S_OK : E_FAIL;
}

HRESULT UpdateModeSetting::WriteUpdateMode(const wchar_t* text) const {
    win32::UniqueRegistryKey key;
    LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kWrittenKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_WRITE, nullptr, key.Receive(), nullptr);
    if (status == ERROR_ACCESS_DENIED) {
        LogText("Failed open registry key with status ACCESS_DENIED\n");
        return E_FAIL;
    }
    if (status != ERROR_SUCCESS) {
        LogLine("Failed to open / create registry key with status ", status);
        return E_FAIL;
    }

    // The byte count deliberately leaves out the terminator.
    const auto size = static_cast<DWORD>(std::wstring_view(text).size() * sizeof(wchar_t));
    status = RegSetValueExW(key.Get(), kValueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(text), size);
    if (status != ERROR_SUCCESS) {
        LogLine("Failed write registry value with status ", status);
        return E_FAIL;
    }
    return S_OK;
}
