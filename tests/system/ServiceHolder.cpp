// Does to a service what a window that lists services does. `service_holder NAME` has it open until this
// program is run once more without a name; so does `service_holder VERB NAME`, for who puts it in the place
// of sc. With a switch it does nothing, and says that all is well.

#include <windows.h>

#include <cstdio>

namespace {

const wchar_t* const kReleaseName = L"Global\\VeyraServiceHolderRelease";

int Hold(const wchar_t* service) {
    const HANDLE release = CreateEventW(nullptr, TRUE, FALSE, kReleaseName);
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE handle = OpenServiceW(manager, service, SERVICE_QUERY_STATUS);
    if (release == nullptr || handle == nullptr) {
        return 1;
    }
    std::puts("held");
    std::fflush(stdout);
    WaitForSingleObject(release, INFINITE);
    CloseServiceHandle(handle);
    CloseServiceHandle(manager);
    CloseHandle(release);
    return 0;
}

int Release() {
    const HANDLE release = OpenEventW(EVENT_MODIFY_STATE, FALSE, kReleaseName);
    return release != nullptr && SetEvent(release) ? 0 : 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) {
        return Release();
    }
    if (argv[1][0] == L'-') {
        return 0;
    }
    if (argc > 2) {
        return Hold(argv[2]);
    }
    return Hold(argv[1]);
}
