#include "service/CommandLine.h"

#include "win32/UniqueHandle.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cwchar>

namespace {

constexpr const wchar_t* kDisplayName = L"Veyra Camera DFU service";
constexpr const wchar_t* kAccount = L"NT AUTHORITY\\LocalService";
constexpr const wchar_t* kNoDependencies = L"\0";  // an empty list, with its double terminator
constexpr DWORD kModulePathCapacity = 260;
constexpr DWORD kStopPollPeriodMs = 1000;

// The console printer. Flushes, so that progress is seen as it happens.
void Print(const wchar_t* format, ...) {
    va_list arguments{};
    va_start(arguments, format);
    std::vwprintf(format, arguments);
    va_end(arguments);
    std::fflush(stdout);
}

void PrintFailure(const wchar_t* what) {
    Print(L"%ls w/err 0x%08lx\n", what, GetLastError());
}

void Install(const wchar_t* serviceName) {
    std::array<wchar_t, kModulePathCapacity> path{};
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), kModulePathCapacity);
    if (length == 0 || length == kModulePathCapacity) {
        PrintFailure(L"GetModuleFileName failed");
        return;
    }
    win32::UniqueServiceHandle service;  // declared first: the manager is closed before it
    const win32::UniqueServiceHandle manager(
        OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE));
    if (!manager) {
        PrintFailure(L"OpenSCManager failed");
        return;
    }
    // The narrow access is deliberate, the handle is only closed; so is the unquoted path.
    service.Reset(CreateServiceW(manager.Get(), serviceName, kDisplayName, SERVICE_QUERY_STATUS,
                                 SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                 path.data(), nullptr, nullptr, kNoDependencies, kAccount, nullptr));
    if (!service) {
        PrintFailure(L"CreateService failed");
        return;
    }
    Print(L"%ls is installed.\n", serviceName);
}

// Stops a running service and waits, without an upper bound, until it has left SERVICE_STOP_PENDING.
void StopForRemoval(SC_HANDLE service, const wchar_t* serviceName) {
    SERVICE_STATUS status{};
    if (!ControlService(service, SERVICE_CONTROL_STOP, &status)) {
        return;
    }
    Print(L"Stopping %ls.", serviceName);
    Sleep(kStopPollPeriodMs);
    while (QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_STOP_PENDING) {
        Print(L".");
        Sleep(kStopPollPeriodMs);
    }
    if (status.dwCurrentState == SERVICE_STOPPED) {
        Print(L"\n%ls is stopped.\n", serviceName);
    } else {
        Print(L"\n%ls failed to stop.\n", serviceName);
    }
}

void Remove(const wchar_t* serviceName) {
    win32::UniqueServiceHandle service;  // declared first: the manager is closed before it
    const win32::UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        PrintFailure(L"OpenSCManager failed");
        return;
    }
    service.Reset(OpenServiceW(manager.Get(), serviceName, DELETE | SERVICE_STOP | SERVICE_QUERY_STATUS));
    if (!service) {
        PrintFailure(L"OpenService failed");
        return;
    }
    StopForRemoval(service.Get(), serviceName);
    if (!DeleteService(service.Get())) {
        PrintFailure(L"DeleteService failed");
        return;
    }
    Print(L"%ls is removed.\n", serviceName);
}

void RunAsService(DFUServiceBase& service) {
    Print(L"Parameters:\n");
    Print(L" -install  to install the service.\n");
    Print(L" -remove   to remove the service.\n");

    DFUServiceBase::SetInstance(&service);
    const std::array<SERVICE_TABLE_ENTRYW, 2> dispatchTable{{
        {const_cast<wchar_t*>(service.Name()), DFUServiceBase::ServiceMain},
        {nullptr, nullptr},
    }};
    if (!StartServiceCtrlDispatcherW(dispatchTable.data())) {
        PrintFailure(L"Service failed to run");
    }
}

}  // namespace

void RunCommandLine(int argc, wchar_t** argv, DFUServiceBase& service) {
    if (argc < 2 || (argv[1][0] != L'-' && argv[1][0] != L'/')) {
        RunAsService(service);
        return;
    }
    const wchar_t* const command = argv[1] + 1;
    if (_wcsicmp(command, L"install") == 0) {
        Install(service.Name());
    } else if (_wcsicmp(command, L"remove") == 0) {
        Remove(service.Name());
    }
    // Any other switch ends here without a word: deliberate.
}
