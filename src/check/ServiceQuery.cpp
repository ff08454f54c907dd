#include "check/ServiceQuery.h"

#include "check/FileInspector.h"
#include "check/ProgramName.h"
#include "check/RegistryReader.h"
#include "check/Utf8.h"
#include "service/FDUService.h"
#include "win32/UniqueHandle.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace check {
namespace {

constexpr const wchar_t* kServicesKey = L"SYSTEM\\CurrentControlSet\\Services\\";
constexpr const wchar_t* kMonitoredService = L"VeyraCameraDFU";

// ERROR_SUCCESS, or why the service is not open.
DWORD Open(const wchar_t* name, win32::UniqueServiceHandle& service) {
    const win32::UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        return GetLastError();
    }
    service.Reset(OpenServiceW(manager.Get(), name, SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS));
    return service ? ERROR_SUCCESS : GetLastError();
}

DWORD ReadConfiguration(SC_HANDLE service, ServiceState& state) {
    DWORD size = 0;
    QueryServiceConfigW(service, nullptr, 0, &size);
    std::vector<std::max_align_t> block(size / sizeof(std::max_align_t) + 1);
    auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(block.data());
    if (!QueryServiceConfigW(service, configuration, size, &size)) {
        return GetLastError();
    }
    state.startType = static_cast<StartType>(configuration->dwStartType);
    SERVICE_DELAYED_AUTO_START_INFO delayed{};
    DWORD needed = 0;
    state.isDelayed =
        state.startType == StartType::Automatic &&
        QueryServiceConfig2W(service, SERVICE_CONFIG_DELAYED_AUTO_START_INFO,
                             reinterpret_cast<BYTE*>(&delayed), sizeof delayed, &needed) != FALSE &&
        delayed.fDelayedAutostart != FALSE;
    state.commandLine = Utf8(configuration->lpBinaryPathName);
    state.account = configuration->lpServiceStartName == nullptr ? "LocalSystem"
                                                                 : Utf8(configuration->lpServiceStartName);
    return ERROR_SUCCESS;
}

DWORD ReadStatus(SC_HANDLE service, ServiceState& state) {
    SERVICE_STATUS_PROCESS status{};
    DWORD size = 0;
    if (!QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                              sizeof status, &size)) {
        return GetLastError();
    }
    state.runState = static_cast<RunState>(status.dwCurrentState);
    state.processId = status.dwProcessId;
    state.exitCode = status.dwWin32ExitCode;
    return ERROR_SUCCESS;
}

void LookAtProgram(ServiceState& state) {
    const ProgramName name = ProgramNameOf(Utf8(RegistryReader::Expand(Wide(state.commandLine))));
    state.isQuoted = name.isQuoted;
    state.program = name.path;
    const auto instead =
        std::find_if(name.triedBefore.begin(), name.triedBefore.end(), FileInspector::IsFile);
    if (instead != name.triedBefore.end()) {
        state.startedInstead = *instead;
    }
    state.programExists = FileInspector::IsFile(state.program);
    state.programError = FileInspector::ErrorOf(state.program);
    if (state.programExists) {
        state.programVersion = FileInspector::VersionOf(state.program);
        state.programWriters = FileInspector::WritersOf(state.program, Protected::File);
        state.folderWriters = FileInspector::WritersOf(FolderOf(state.program), Protected::Folder);
    }
}

}  // namespace

ServiceState QueryService() {
    ServiceState state;
    win32::UniqueServiceHandle namesake;
    state.hasNamesake = Open(kMonitoredService, namesake) == ERROR_SUCCESS;
    win32::UniqueServiceHandle service;
    state.error = Open(kServiceName, service);
    if (state.error == ERROR_SERVICE_DOES_NOT_EXIST) {
        state.error = ERROR_SUCCESS;
        return state;
    }
    if (state.error != ERROR_SUCCESS) {
        return state;
    }
    state.isInstalled = true;
    state.error = ReadConfiguration(service.Get(), state);
    if (state.error == ERROR_SUCCESS) {
        state.error = ReadStatus(service.Get(), state);
    }
    state.isMarkedForDeletion =
        RegistryReader::Read(std::wstring(kServicesKey) + kServiceName, L"DeleteFlag").Number() != 0;
    LookAtProgram(state);
    return state;
}

bool ServiceLeavesDevicesAlone() {
    win32::UniqueServiceHandle service;
    const DWORD error = Open(kServiceName, service);
    if (error != ERROR_SUCCESS) {
        return error == ERROR_SERVICE_DOES_NOT_EXIST;
    }
    ServiceState state;
    return ReadStatus(service.Get(), state) == ERROR_SUCCESS && state.runState == RunState::Stopped;
}

}  // namespace check
