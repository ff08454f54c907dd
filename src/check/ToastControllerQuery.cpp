#include "check/ToastControllerQuery.h"

#include "check/AccessList.h"
#include "check/FileInspector.h"
#include "check/ProgramName.h"
#include "check/RegistryReader.h"
#include "check/Utf8.h"
#include "check/Words.h"
#include "prompt/IToastCntr.h"
#include "win32/SystemDirectory.h"
#include "win32/UniqueHandle.h"

#include <objbase.h>
#include <tlhelp32.h>

#include <algorithm>
#include <array>

namespace check {
namespace {

constexpr const wchar_t* kClassesKey = L"SOFTWARE\\Classes\\CLSID\\";
constexpr const wchar_t* kAppIdsKey = L"SOFTWARE\\Classes\\AppID\\";
constexpr const wchar_t* kExecutable = L"\\VeyraCameraToastCntl.exe";
constexpr int kClassTextCapacity = 40;
// The AppID of the package's controller, and its alone.
constexpr std::string_view kOwnAppId = "{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}";

std::wstring ClassId() {
    std::array<wchar_t, kClassTextCapacity> text{};
    StringFromGUID2(kClsidToastController, text.data(), kClassTextCapacity);
    return text.data();
}

Permission PermissionIn(const std::wstring& key, const wchar_t* name,
                        Permission (*permissionOf)(const AccessList&)) {
    const auto value = RegistryReader::Read(key, name);
    if (value.error == ERROR_FILE_NOT_FOUND) {
        return Permission::NotSet;
    }
    const auto list =
        value.error == ERROR_SUCCESS && value.type == REG_BINARY ? ReadAccessList(value.data) : std::nullopt;
    return list ? permissionOf(*list) : Permission::Unreadable;
}

// COM finds the access permission by the name of the server's program.
std::wstring AccessKey(const ToastControllerState& state) {
    const auto appId = RegistryReader::Read(kAppIdsKey + Wide(FileNameOf(state.program)), L"AppID");
    return appId.error == ERROR_SUCCESS ? kAppIdsKey + appId.Text() : std::wstring();
}

void ReadApplication(ToastControllerState& state) {
    if (!state.appId.empty()) {
        const std::wstring key = kAppIdsKey + Wide(state.appId);
        state.runAs = Utf8(RegistryReader::Read(key, L"RunAs").Text());
        state.launch = PermissionIn(key, L"LaunchPermission", LaunchPermissionOf);
    }
    const std::wstring accessKey = AccessKey(state);
    if (!accessKey.empty()) {
        state.access = PermissionIn(accessKey, L"AccessPermission", AccessPermissionOf);
    }
}

std::vector<std::uint32_t> SessionsOf(const std::string& program) {
    std::vector<std::uint32_t> sessions;
    const HANDLE taken = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    const win32::UniqueKernelHandle snapshot(taken == INVALID_HANDLE_VALUE ? nullptr : taken);
    PROCESSENTRY32W process{};
    process.dwSize = sizeof process;
    const std::string name = FileNameOf(program);
    for (BOOL isThere = snapshot ? Process32FirstW(snapshot.Get(), &process) : FALSE; isThere;
         isThere = Process32NextW(snapshot.Get(), &process)) {
        DWORD session = 0;
        if (EqualsIgnoringCase(Utf8(process.szExeFile), name) &&
            ProcessIdToSessionId(process.th32ProcessID, &session)) {
            sessions.push_back(session);
        }
    }
    std::sort(sessions.begin(), sessions.end());
    return sessions;
}

}  // namespace

ToastControllerState QueryToastController() {
    ToastControllerState state;
    const std::wstring classId = ClassId();
    state.classId = Utf8(classId);
    const std::wstring classKey = kClassesKey + classId;
    const std::string systemFile = Utf8(win32::SystemDirectory() + kExecutable);
    state.isInSystemFolder = FileInspector::IsFile(systemFile);
    const LSTATUS opened = RegistryReader::Open(classKey);
    if (opened != ERROR_SUCCESS) {
        state.error = opened == ERROR_FILE_NOT_FOUND ? 0 : static_cast<std::uint32_t>(opened);
        return state;
    }
    state.isRegistered = true;
    const std::wstring serverKey = classKey + L"\\LocalServer32";
    state.commandLine = Utf8(RegistryReader::Read(serverKey, L"").Expanded());
    const std::string named = Utf8(RegistryReader::Read(serverKey, L"ServerExecutable").Expanded());
    state.program = named.empty() ? ProgramNameOf(state.commandLine).path : named;
    state.appId = Utf8(RegistryReader::Read(classKey, L"AppID").Text());
    state.isOurs = EqualsIgnoringCase(state.appId, kOwnAppId);
    state.programExists = FileInspector::IsFile(state.program);
    state.programError = FileInspector::ErrorOf(state.program);
    if (state.programExists) {
        state.programVersion = FileInspector::VersionOf(state.program);
        state.programWriters = FileInspector::WritersOf(state.program, Protected::File);
    }
    if (state.programExists || state.programError != ERROR_SUCCESS) {
        state.sessions = SessionsOf(state.program);
    }
    ReadApplication(state);
    return state;
}

}  // namespace check
