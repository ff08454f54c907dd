#include "packaging/start_type/StartType.h"

#include "win32/UniqueHandle.h"

namespace start_type {
namespace {

DWORD NumberOf(StartType type) {
    switch (type) {
        case StartType::kAutomatic:
        case StartType::kDelayed:
            return SERVICE_AUTO_START;
        case StartType::kDisabled:
            return SERVICE_DISABLED;
        case StartType::kManual:
            break;
    }
    return SERVICE_DEMAND_START;
}

DWORD SetDelay(SC_HANDLE service, bool delayed) {
    SERVICE_DELAYED_AUTO_START_INFO delay{};
    delay.fDelayedAutostart = delayed;
    if (ChangeServiceConfig2W(service, SERVICE_CONFIG_DELAYED_AUTO_START_INFO, &delay)) {
        return ERROR_SUCCESS;
    }
    const DWORD error = GetLastError();
    // A system that knows no delay has none to take away.
    return !delayed && error == ERROR_INVALID_LEVEL ? ERROR_SUCCESS : error;
}

}  // namespace

std::optional<StartType> StartTypeOf(std::wstring_view word) {
    if (word == L"Automatic") {
        return StartType::kAutomatic;
    }
    if (word == L"Delayed") {
        return StartType::kDelayed;
    }
    if (word == L"Manual") {
        return StartType::kManual;
    }
    if (word == L"Disabled") {
        return StartType::kDisabled;
    }
    return std::nullopt;
}

DWORD SetStartType(const wchar_t* service, StartType type) {
    const win32::UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        return GetLastError();
    }
    const win32::UniqueServiceHandle handle(OpenServiceW(manager.Get(), service, SERVICE_CHANGE_CONFIG));
    if (!handle) {
        return GetLastError();
    }
    if (!ChangeServiceConfigW(handle.Get(), SERVICE_NO_CHANGE, NumberOf(type), SERVICE_NO_CHANGE, nullptr,
                              nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)) {
        return GetLastError();
    }
    // A service that does not start with Windows has no use for a delay.
    return NumberOf(type) == SERVICE_AUTO_START ? SetDelay(handle.Get(), type == StartType::kDelayed)
                                                : ERROR_SUCCESS;
}

}  // namespace start_type
