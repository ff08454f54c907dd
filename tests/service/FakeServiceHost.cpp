#include "tests/service/FakeServiceHost.h"

#include "tests/support/Text.h"

#include <dbt.h>
#include <objbase.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

using test_support::NarrowOrNull;
using test_support::Text;

constexpr std::wstring_view kGroupName = L"Morrow KV400 Cameras";

int statusObject = 0;
int notificationObject = 0;
int eventLogObject = 0;
int keyObject = 0;

SERVICE_STATUS_HANDLE StatusHandle() {
    return reinterpret_cast<SERVICE_STATUS_HANDLE>(&statusObject);
}

bool IsZero(const GUID& id) {
    const GUID zero{};
    return std::memcmp(&id, &zero, sizeof zero) == 0;
}

}  // namespace

FakeServiceHost::FakeServiceHost()
    : registerHandler_("RegisterServiceCtrlHandlerExW", OnRegisterHandler),
      registerNotification_("RegisterDeviceNotificationW", OnRegisterNotification),
      setServiceStatus_("SetServiceStatus", OnSetServiceStatus),
      registerEventSource_("RegisterEventSourceW", OnRegisterEventSource),
      reportEvent_("ReportEventW", OnReportEvent),
      deregisterEventSource_("DeregisterEventSource", OnDeregisterEventSource),
      outputDebugString_("OutputDebugStringW", OnOutputDebugString),
      stringFromClsid_("StringFromCLSID", OnStringFromClsid),
      coTaskMemFree_("CoTaskMemFree", OnCoTaskMemFree),
      openKey_("RegOpenKeyExW", OnOpenKey),
      queryInfoKey_("RegQueryInfoKeyW", OnQueryInfoKey),
      enumKey_("RegEnumKeyExW", OnEnumKey),
      getValue_("RegGetValueW", OnGetValue),
      system_("system", OnSystem) {}

void FakeServiceHost::Record(const std::string& line) {
    const std::scoped_lock guard(lock_);
    lines_.push_back(line);
}

std::vector<std::string> FakeServiceHost::Lines() const {
    const std::scoped_lock guard(lock_);
    return lines_;
}

std::vector<std::string> FakeServiceHost::Commands() const {
    const std::scoped_lock guard(lock_);
    std::vector<std::string> sorted = commands_;
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

void FakeServiceHost::Forget() {
    const std::scoped_lock guard(lock_);
    lines_.clear();
    commands_.clear();
}

std::string FakeServiceHost::CheckPointText(DWORD checkPoint) const {
    return checkPoint == 0 ? "0" : "#" + std::to_string(checkPoint - checkPointBase_);
}

SERVICE_STATUS_HANDLE WINAPI FakeServiceHost::OnRegisterHandler(const wchar_t* name,
                                                                LPHANDLER_FUNCTION_EX handler,
                                                                void* context) {
    current_->Record(Text("RegisterServiceCtrlHandlerExW(", NarrowOrNull(name), ")"));
    current_->handler = handler;
    current_->handlerContext = context;
    SetLastError(current_->registerHandlerError);
    return current_->registerHandlerError == ERROR_SUCCESS ? StatusHandle() : nullptr;
}

void* WINAPI FakeServiceHost::OnRegisterNotification(HANDLE recipient, void* filter, DWORD flags) {
    const auto& interfaces = *static_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(filter);
    current_->Record(Text(
        "RegisterDeviceNotificationW(",
        recipient == static_cast<HANDLE>(StatusHandle()) ? "status handle" : "another handle", ", size ",
        interfaces.dbcc_size, ", type ", interfaces.dbcc_devicetype, ", reserved ", interfaces.dbcc_reserved,
        ", class ", IsZero(interfaces.dbcc_classguid) ? "zero" : "not zero", ", flags ", flags, ")"));
    SetLastError(current_->registerNotificationError);
    return current_->registerNotificationError == ERROR_SUCCESS ? &notificationObject : nullptr;
}

BOOL WINAPI FakeServiceHost::OnSetServiceStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status) {
    current_->lastStatus_ = *status;
    current_->Record(Text("status of ", handle == StatusHandle() ? "handle" : "no handle", ": type ",
                          status->dwServiceType, ", state ", status->dwCurrentState, ", accepts ",
                          status->dwControlsAccepted, ", exit ", status->dwWin32ExitCode, ", specific ",
                          status->dwServiceSpecificExitCode, ", check-point ",
                          current_->CheckPointText(status->dwCheckPoint), ", hint ", status->dwWaitHint));
    return TRUE;
}

HANDLE WINAPI FakeServiceHost::OnRegisterEventSource(const wchar_t* server, const wchar_t* source) {
    current_->Record(Text("RegisterEventSourceW(", NarrowOrNull(server), ", ", NarrowOrNull(source), ")"));
    SetLastError(current_->registerEventSourceError);
    return current_->registerEventSourceError == ERROR_SUCCESS ? &eventLogObject : nullptr;
}

BOOL WINAPI FakeServiceHost::OnReportEvent(HANDLE log, WORD type, WORD category, DWORD id, void* user,
                                           WORD stringCount, DWORD dataSize, const wchar_t** strings,
                                           void* data) {
    std::string line =
        Text("ReportEventW(", log == &eventLogObject ? "log" : "another log", ", type ", type, ", category ",
             category, ", id ", id, ", ", user == nullptr ? "no user" : "a user", ", ", dataSize, " bytes, ",
             data == nullptr ? "no data" : "data");
    for (WORD index = 0; index < stringCount; ++index) {
        line += Text(", \"", NarrowOrNull(strings[index]), "\"");
    }
    current_->Record(line + ")");
    return TRUE;
}

BOOL WINAPI FakeServiceHost::OnDeregisterEventSource(HANDLE log) {
    current_->Record(Text("DeregisterEventSource(", log == &eventLogObject ? "log" : "another log", ")"));
    return TRUE;
}

void WINAPI FakeServiceHost::OnOutputDebugString(const wchar_t* text) {
    current_->Record(text != nullptr ? Text("debug \"", NarrowOrNull(text), "\"") : "debug null");
    if (current_->onDebugText) {
        current_->onDebugText(text != nullptr ? text : L"");
    }
}

HRESULT WINAPI FakeServiceHost::OnStringFromClsid(const GUID& id, wchar_t** text) {
    current_->Record("StringFromCLSID");
    if (current_->classTextFails) {
        return E_OUTOFMEMORY;
    }
    const HRESULT result = current_->stringFromClsid_.Original<decltype(::StringFromCLSID)>()(id, text);
    current_->classText_ = *text;
    return result;
}

void WINAPI FakeServiceHost::OnCoTaskMemFree(void* memory) {
    current_->Record(
        Text("CoTaskMemFree(", memory == current_->classText_ ? "class text" : "something else", ")"));
    current_->coTaskMemFree_.Original<decltype(::CoTaskMemFree)>()(memory);
}

LSTATUS WINAPI FakeServiceHost::OnOpenKey(HKEY parent, const wchar_t* path, DWORD, REGSAM, HKEY* key) {
    if (parent == HKEY_LOCAL_MACHINE) {
        current_->Record(Text("monitor scans ", NarrowOrNull(path)));
    }
    if (!current_->hasCamera) {
        return ERROR_FILE_NOT_FOUND;
    }
    *key = reinterpret_cast<HKEY>(&keyObject);
    return ERROR_SUCCESS;
}

LSTATUS WINAPI FakeServiceHost::OnQueryInfoKey(HKEY, wchar_t*, DWORD*, DWORD*, DWORD* subkeys, DWORD*, DWORD*,
                                               DWORD*, DWORD*, DWORD*, DWORD*, FILETIME*) {
    *subkeys = 1;
    return ERROR_SUCCESS;
}

LSTATUS WINAPI FakeServiceHost::OnEnumKey(HKEY, DWORD, wchar_t* name, DWORD* nameLength, DWORD*, wchar_t*,
                                          DWORD*, FILETIME*) {
    name[0] = L'A';
    name[1] = L'\0';
    *nameLength = 1;
    return ERROR_SUCCESS;
}

LSTATUS WINAPI FakeServiceHost::OnGetValue(HKEY, const wchar_t*, const wchar_t*, DWORD, DWORD*, void* data,
                                           DWORD* size) {
    const std::size_t bytes = (kGroupName.size() + 1) * sizeof(wchar_t);
    if (data != nullptr) {
        std::memcpy(data, kGroupName.data(), bytes);
    }
    *size = static_cast<DWORD>(bytes);
    return ERROR_SUCCESS;
}

int __cdecl FakeServiceHost::OnSystem(const char* command) {
    const std::scoped_lock guard(current_->lock_);
    current_->commands_.emplace_back(command);
    return 0;
}
