// A service that is told to stop, says that the stop is pending, and stays so until this program is run once
// more, with any word behind its name.

#include <windows.h>

#include <atomic>

namespace {

// Above every exit code of the programs that ship.
constexpr int kNoService = 9;
const wchar_t* const kReleaseName = L"Global\\VeyraStubbornServiceRelease";

std::atomic<SERVICE_STATUS_HANDLE> handle{nullptr};

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
    }
    return NO_ERROR;
}

void WINAPI Main(DWORD, wchar_t** arguments) {
    const HANDLE release = CreateEventW(nullptr, TRUE, FALSE, kReleaseName);
    handle = RegisterServiceCtrlHandlerExW(arguments[0], Handle, nullptr);
    Report(SERVICE_RUNNING);
    WaitForSingleObject(release, INFINITE);
    CloseHandle(release);
    Report(SERVICE_STOPPED);
}

int Release() {
    const HANDLE release = OpenEventW(EVENT_MODIFY_STATE, FALSE, kReleaseName);
    return release != nullptr && SetEvent(release) ? 0 : 1;
}

}  // namespace

int main(int argc, char**) {
    if (argc > 1) {
        return Release();
    }
    wchar_t name[] = L"";
    const SERVICE_TABLE_ENTRYW table[] = {{name, Main}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : kNoService;
}
