#include <windows.h>
#include <dbt.h>

#include <thread>

#include <nlohmann/json.hpp>

#include "lab/rig/process/ImportTable.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"
#include "lab/rig/text/GuidText.h"

namespace lab::rig {
namespace {

constexpr DWORD kAnswerTimeMs = 100;

decltype(&::StartServiceCtrlDispatcherW) startServiceCtrlDispatcher = nullptr;
decltype(&::RegisterServiceCtrlHandlerExW) registerServiceCtrlHandlerEx = nullptr;
decltype(&::SetServiceStatus) setServiceStatus = nullptr;
decltype(&::RegisterDeviceNotificationW) registerDeviceNotification = nullptr;

// The real dispatcher moves to a thread of its own; the calling thread hands over its controls and, between
// them, the bus's device events, as one dispatcher thread does on Windows.
BOOL WINAPI StartDispatcher(const SERVICE_TABLE_ENTRYW* table) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr) {
        return startServiceCtrlDispatcher(table);
    }
    BOOL result = FALSE;
    DWORD error = ERROR_SUCCESS;
    std::thread dispatcher([&] {
        result = startServiceCtrlDispatcher(table);
        error = GetLastError();
        rig->Controls().End();
    });
    rig->Controls().Run();
    dispatcher.join();
    // Wine's dispatcher returns as soon as the service reports that it has stopped. The thread on which that
    // was reported has still to answer the control manager, who otherwise says that the stop has failed.
    Sleep(kAnswerTimeMs);
    SetLastError(error);
    return result;
}

DWORD WINAPI PassControlToLoop(DWORD control, DWORD type, void* data, void* rig) {
    return static_cast<Rig*>(rig)->Controls().Deliver(control, type, data);
}

SERVICE_STATUS_HANDLE WINAPI RegisterHandler(const wchar_t* name, LPHANDLER_FUNCTION_EX handler,
                                             void* context) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr || handler == nullptr) {
        return registerServiceCtrlHandlerEx(name, handler, context);
    }
    rig->Controls().SetHandler(handler, context);
    return registerServiceCtrlHandlerEx(name, PassControlToLoop, rig);
}

// Wine's dispatcher holds a lock while a control is handled, and reporting the stopped state takes that lock:
// on Windows both happen on one thread, so the report is made on the thread that holds it.
BOOL WINAPI SetServiceStatusRecorded(SERVICE_STATUS_HANDLE service, SERVICE_STATUS* status) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr || status == nullptr) {
        return setServiceStatus(service, status);
    }
    rig->Record(
        {{"event", "service-status"},
         {"words",
          {status->dwServiceType, status->dwCurrentState, status->dwControlsAccepted, status->dwWin32ExitCode,
           status->dwServiceSpecificExitCode, status->dwCheckPoint, status->dwWaitHint}}});
    BOOL result = FALSE;
    rig->Controls().CallBesideDispatcher([&] { result = setServiceStatus(service, status); });
    return result;
}

HDEVNOTIFY WINAPI RegisterNotification(HANDLE recipient, void* filter, DWORD flags) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr || (flags & DEVICE_NOTIFY_SERVICE_HANDLE) == 0) {
        return registerDeviceNotification(recipient, filter, flags);
    }
    const auto* const wanted = static_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(filter);
    if (recipient == nullptr || wanted == nullptr || wanted->dbcc_size < sizeof *wanted ||
        wanted->dbcc_devicetype != DBT_DEVTYP_DEVICEINTERFACE) {
        SetLastError(recipient == nullptr ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    rig->Record({{"event", "notification-registered"},
                 {"size", wanted->dbcc_size},
                 {"device_type", wanted->dbcc_devicetype},
                 {"class", GuidText(wanted->dbcc_classguid)},
                 {"flags", flags}});
    rig->Controls().SetNotification(*wanted, flags);
    return rig;
}

}  // namespace

void RedirectServiceControl() {
    Redirect("StartServiceCtrlDispatcherW", &StartDispatcher, startServiceCtrlDispatcher);
    Redirect("RegisterServiceCtrlHandlerExW", &RegisterHandler, registerServiceCtrlHandlerEx);
    Redirect("SetServiceStatus", &SetServiceStatusRecorded, setServiceStatus);
    Redirect("RegisterDeviceNotificationW", &RegisterNotification, registerDeviceNotification);
}

}  // namespace lab::rig
