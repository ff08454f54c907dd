// `service_end NAME` stops a service and waits for the end of its process, whose exit code is its own. When
// it could not stop it the exit code is 259, which no process ends with.

#include <windows.h>

int wmain(int argc, wchar_t** argv) {
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE service =
        OpenServiceW(manager, argc > 1 ? argv[1] : L"", SERVICE_QUERY_STATUS | SERVICE_STOP);
    SERVICE_STATUS_PROCESS running{};
    DWORD size = 0;
    QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&running), sizeof running,
                         &size);
    const HANDLE process =
        OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, running.dwProcessId);
    SERVICE_STATUS stopping{};
    DWORD code = STILL_ACTIVE;
    if (process != nullptr && ControlService(service, SERVICE_CONTROL_STOP, &stopping)) {
        WaitForSingleObject(process, INFINITE);
        GetExitCodeProcess(process, &code);
    }
    CloseHandle(process);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return static_cast<int>(code);
}
