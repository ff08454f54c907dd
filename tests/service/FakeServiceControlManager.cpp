#include "tests/service/FakeServiceControlManager.h"

#include "tests/support/Text.h"

#include <algorithm>
#include <string_view>

namespace {

using test_support::Hex;
using test_support::NarrowOrNull;
using test_support::Text;

int managerObject = 0;
int serviceObject = 0;

SC_HANDLE ManagerHandle() {
    return reinterpret_cast<SC_HANDLE>(&managerObject);
}

SC_HANDLE ServiceHandle() {
    return reinterpret_cast<SC_HANDLE>(&serviceObject);
}

std::string NameOf(SC_HANDLE handle) {
    if (handle == ManagerHandle()) {
        return "manager";
    }
    return handle == ServiceHandle() ? "service" : "an unknown handle";
}

// Gives the handle, or null with the error as the last error.
SC_HANDLE Answer(DWORD error, SC_HANDLE handle) {
    SetLastError(error);
    return error == ERROR_SUCCESS ? handle : nullptr;
}

BOOL Answer(DWORD error) {
    SetLastError(error);
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

}  // namespace

FakeServiceControlManager::FakeServiceControlManager()
    : getModuleFileName_("GetModuleFileNameW", OnGetModuleFileName),
      openManager_("OpenSCManagerW", OnOpenManager),
      createService_("CreateServiceW", OnCreateService),
      openService_("OpenServiceW", OnOpenService),
      controlService_("ControlService", OnControlService),
      queryServiceStatus_("QueryServiceStatus", OnQueryServiceStatus),
      deleteService_("DeleteService", OnDeleteService),
      closeServiceHandle_("CloseServiceHandle", OnCloseServiceHandle),
      startDispatcher_("StartServiceCtrlDispatcherW", OnStartDispatcher),
      sleep_("Sleep", OnSleep) {}

void FakeServiceControlManager::Watch(const std::function<void()>& program) {
    console_.emplace();
    program();
    TakePrinted();
    errors_ += console_->Errors();
    console_.reset();
}

std::string FakeServiceControlManager::Printed() const {
    std::string printed;
    for (const std::string& line : transcript_) {
        if (line.starts_with("> ")) {
            printed += line.substr(2);
        }
    }
    return printed;
}

void FakeServiceControlManager::TakePrinted() {
    const std::string printed = console_->TakeOutput();
    if (!printed.empty()) {
        transcript_.push_back("> " + printed);
    }
}

void FakeServiceControlManager::Record(const std::string& line) {
    TakePrinted();
    transcript_.push_back(line);
}

DWORD WINAPI FakeServiceControlManager::OnGetModuleFileName(HMODULE module, wchar_t* path, DWORD capacity) {
    FakeServiceControlManager& fake = *current_;
    fake.Record(Text("GetModuleFileNameW(", module == nullptr ? "null" : "a module", ", ", capacity, ")"));
    const std::wstring_view text = fake.modulePath;
    std::copy_n(text.data(), std::min<std::size_t>(text.size(), capacity), path);
    SetLastError(fake.modulePathError);
    return fake.modulePathLength >= 0 ? static_cast<DWORD>(fake.modulePathLength)
                                      : static_cast<DWORD>(text.size());
}

SC_HANDLE WINAPI FakeServiceControlManager::OnOpenManager(const wchar_t* machine, const wchar_t* database,
                                                          DWORD access) {
    current_->Record(Text("OpenSCManagerW(", NarrowOrNull(machine), ", ", NarrowOrNull(database), ", 0x",
                          Hex(access), ")"));
    return Answer(current_->openManagerError, ManagerHandle());
}

SC_HANDLE WINAPI FakeServiceControlManager::OnCreateService(
    SC_HANDLE manager, const wchar_t* name, const wchar_t* displayName, DWORD access, DWORD type,
    DWORD startType, DWORD errorControl, const wchar_t* path, const wchar_t* loadOrderGroup, DWORD* tag,
    const wchar_t* dependencies, const wchar_t* account, const wchar_t* password) {
    const bool isEmptyList = dependencies != nullptr && dependencies[0] == L'\0' && dependencies[1] == L'\0';
    current_->Record(Text("CreateServiceW(", NameOf(manager), ", ", NarrowOrNull(name), ", ",
                          NarrowOrNull(displayName), ", 0x", Hex(access), ", 0x", Hex(type), ", 0x",
                          Hex(startType), ", 0x", Hex(errorControl), ", ", NarrowOrNull(path), ", ",
                          NarrowOrNull(loadOrderGroup), ", ", tag == nullptr ? "null" : "a tag", ", ",
                          isEmptyList ? "an empty list" : "another list", ", ", NarrowOrNull(account), ", ",
                          NarrowOrNull(password), ")"));
    return Answer(current_->createServiceError, ServiceHandle());
}

SC_HANDLE WINAPI FakeServiceControlManager::OnOpenService(SC_HANDLE manager, const wchar_t* name,
                                                          DWORD access) {
    current_->Record(
        Text("OpenServiceW(", NameOf(manager), ", ", NarrowOrNull(name), ", 0x", Hex(access), ")"));
    return Answer(current_->openServiceError, ServiceHandle());
}

BOOL WINAPI FakeServiceControlManager::OnControlService(SC_HANDLE service, DWORD control,
                                                        SERVICE_STATUS* status) {
    current_->Record(Text("ControlService(", NameOf(service), ", ", control, ")"));
    status->dwCurrentState = current_->stateAfterStop;
    return Answer(current_->stopError);
}

BOOL WINAPI FakeServiceControlManager::OnQueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status) {
    FakeServiceControlManager& fake = *current_;
    fake.Record("QueryServiceStatus(" + NameOf(service) + ")");
    if (fake.statesToTell.empty()) {
        return Answer(ERROR_ACCESS_DENIED);
    }
    status->dwCurrentState = fake.statesToTell.front();
    fake.statesToTell.pop_front();
    return TRUE;
}

BOOL WINAPI FakeServiceControlManager::OnDeleteService(SC_HANDLE service) {
    current_->Record("DeleteService(" + NameOf(service) + ")");
    return Answer(current_->deleteServiceError);
}

// Leaves another last error behind, as a careless call would.
BOOL WINAPI FakeServiceControlManager::OnCloseServiceHandle(SC_HANDLE handle) {
    current_->Record("CloseServiceHandle(" + NameOf(handle) + ")");
    SetLastError(ERROR_INVALID_HANDLE);
    return TRUE;
}

BOOL WINAPI FakeServiceControlManager::OnStartDispatcher(const SERVICE_TABLE_ENTRYW* table) {
    FakeServiceControlManager& fake = *current_;
    fake.Record("StartServiceCtrlDispatcherW");
    if (fake.onDispatch) {
        fake.onDispatch(table);
    }
    return Answer(fake.dispatcherError);
}

// The thread library yields by Sleep(0), on any thread and at any time: also on one that ends only now.
void WINAPI FakeServiceControlManager::OnSleep(DWORD milliseconds) {
    if (milliseconds == 0) {
        SwitchToThread();
        return;
    }
    current_->Record("Sleep(" + std::to_string(milliseconds) + ")");
}
