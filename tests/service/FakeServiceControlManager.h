#pragma once

#include "tests/service/ConsoleCapture.h"
#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// Stands in for the service control manager and the console of a program that installs, removes or runs its
// service. Every call and everything printed is kept as one line of the transcript, in the order in which it
// happened; handles are called "manager" and "service". Each call succeeds unless its error is set.
class FakeServiceControlManager : public test_support::OnlyOne<FakeServiceControlManager> {
  public:
    FakeServiceControlManager();

    // The path of the running program. The result is its length, or `modulePathLength` when that is set, with
    // the last error that is set.
    std::wstring modulePath = L"C:\\lab rat\\service.exe";
    int modulePathLength = -1;
    DWORD modulePathError = ERROR_SUCCESS;

    DWORD openManagerError = ERROR_SUCCESS;
    DWORD createServiceError = ERROR_SUCCESS;
    DWORD openServiceError = ERROR_SUCCESS;
    DWORD deleteServiceError = ERROR_SUCCESS;
    DWORD dispatcherError = ERROR_SUCCESS;

    // The state that a stop leaves in the status block; a stop fails when the error is set.
    DWORD stopError = ERROR_SUCCESS;
    DWORD stateAfterStop = SERVICE_STOP_PENDING;
    // What QueryServiceStatus tells, one after the other; it fails when there is nothing left to tell.
    std::deque<DWORD> statesToTell;

    // Runs inside the dispatcher, with its table.
    std::function<void(const SERVICE_TABLE_ENTRYW*)> onDispatch;

    // Runs the program with its console captured.
    void Watch(const std::function<void()>& program);

    // Everything so far. Lines that were printed begin with "> ".
    [[nodiscard]] const std::vector<std::string>& Transcript() const { return transcript_; }
    // What was printed on standard output, put together.
    [[nodiscard]] std::string Printed() const;
    // What was printed on standard error.
    [[nodiscard]] const std::string& Errors() const { return errors_; }

  private:
    static DWORD WINAPI OnGetModuleFileName(HMODULE module, wchar_t* path, DWORD capacity);
    static SC_HANDLE WINAPI OnOpenManager(const wchar_t* machine, const wchar_t* database, DWORD access);
    static SC_HANDLE WINAPI OnCreateService(SC_HANDLE manager, const wchar_t* name,
                                            const wchar_t* displayName, DWORD access, DWORD type,
                                            DWORD startType, DWORD errorControl, const wchar_t* path,
                                            const wchar_t* loadOrderGroup, DWORD* tag,
                                            const wchar_t* dependencies, const wchar_t* account,
                                            const wchar_t* password);
    static SC_HANDLE WINAPI OnOpenService(SC_HANDLE manager, const wchar_t* name, DWORD access);
    static BOOL WINAPI OnControlService(SC_HANDLE service, DWORD control, SERVICE_STATUS* status);
    static BOOL WINAPI OnQueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status);
    static BOOL WINAPI OnDeleteService(SC_HANDLE service);
    static BOOL WINAPI OnCloseServiceHandle(SC_HANDLE handle);
    static BOOL WINAPI OnStartDispatcher(const SERVICE_TABLE_ENTRYW* table);
    static void WINAPI OnSleep(DWORD milliseconds);

    void Record(const std::string& line);
    void TakePrinted();

    std::vector<std::string> transcript_;
    std::string errors_;
    std::optional<ConsoleCapture> console_;  // while a program is watched

    test_support::ImportRedirect getModuleFileName_;
    test_support::ImportRedirect openManager_;
    test_support::ImportRedirect createService_;
    test_support::ImportRedirect openService_;
    test_support::ImportRedirect controlService_;
    test_support::ImportRedirect queryServiceStatus_;
    test_support::ImportRedirect deleteService_;
    test_support::ImportRedirect closeServiceHandle_;
    test_support::ImportRedirect startDispatcher_;
    test_support::ImportRedirect sleep_;
};
