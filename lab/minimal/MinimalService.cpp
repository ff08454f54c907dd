#include "lab/minimal/MinimalService.h"

#include <windows.h>
#include <dbt.h>

namespace {

SERVICE_STATUS_HANDLE handle = nullptr;
HANDLE stop = nullptr;

void Report(DWORD state) {
    SERVICE_STATUS status{};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
    SetServiceStatus(handle, &status);
}

DWORD WINAPI Handle(DWORD control, DWORD, void*, void*) {
    if (control == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOP_PENDING);
        SetEvent(stop);
    }
    return NO_ERROR;
}

void WINAPI Main(DWORD, wchar_t** arguments) {
    stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    handle = RegisterServiceCtrlHandlerExW(arguments[0], Handle, nullptr);
    DEV_BROADCAST_DEVICEINTERFACE_W filter{};
    filter.dbcc_size = sizeof filter;
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    RegisterDeviceNotificationW(handle, &filter,
                                DEVICE_NOTIFY_SERVICE_HANDLE | DEVICE_NOTIFY_ALL_INTERFACE_CLASSES);
    Report(SERVICE_RUNNING);
    WaitForSingleObject(stop, INFINITE);
    Report(SERVICE_STOPPED);
}

}  // namespace

namespace lab {

int RunMinimalService() {
    wchar_t name[] = L"";
    const SERVICE_TABLE_ENTRYW table[] = {{name, Main}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}

}  // namespace lab
