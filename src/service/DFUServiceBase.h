#pragma once

#include "monitor/CUninstallMonitor.h"

#include <windows.h>
#include <dbt.h>

// The generic frame of the service: reports its status to the service control manager, turns controls into
// calls of its virtual operations, and forwards device events. Exactly one exists in the process.
//
// ServiceMain runs on a thread of the service control manager; every control and device event is handled on
// the dispatcher's thread, one at a time, and blocks further ones. The status is not locked: the two report
// in turn.
class DFUServiceBase {
  public:
    DFUServiceBase(const DFUServiceBase&) = delete;
    DFUServiceBase& operator=(const DFUServiceBase&) = delete;
    virtual ~DFUServiceBase();

    // What a concrete service does on each transition; the base does nothing. `argc` and `argv` are those of
    // ServiceMain. Failures are raised: win32::Win32Error with the code to report, or anything else.
    virtual void OnStart(DWORD argc, wchar_t** argv);
    virtual void OnStop();
    virtual void OnPause();
    virtual void OnContinue();
    virtual void OnShutdown();

    // A USB device interface has arrived. The result, and what is raised, is ignored.
    virtual HRESULT OnUsbDeviceArrival() = 0;
    // A camera interface has arrived; the record's dbcc_name is its symbolic link, dbcc_size the record's
    // size in bytes. The record lives as long as the call. The result, and what is raised, is ignored.
    virtual HRESULT OnCameraArrival(const DEV_BROADCAST_DEVICEINTERFACE_W& broadcast) = 0;

    // The process's service, which ServiceMain runs. Not owned; to be set before the dispatcher is started.
    static void SetInstance(DFUServiceBase* service);

    // Entry of the dispatch table. Registers the control handler and the device notifications, then starts
    // the service. Raises win32::Win32Error, which ends the process, when the handler cannot be registered.
    static void WINAPI ServiceMain(DWORD argc, wchar_t** argv);
    // The control handler; `context` is the service. Always returns NO_ERROR and lets no exception out.
    static DWORD WINAPI ServiceCtrlHandler(DWORD control, DWORD eventType, void* eventData, void* context);

    // Name of the service and of its event-log source.
    [[nodiscard]] const wchar_t* Name() const { return name_; }

    // The transitions: each reports its states around the virtual operation of its name, and reports, traces
    // or logs what that raises. They raise nothing themselves.
    void Start(DWORD argc, wchar_t** argv);
    void Stop();
    void Pause();
    void Continue();
    void Shutdown();

    // Reports a SERVICE_... state and a Win32 exit code, 0 for none, with wait hint 0. SERVICE_RUNNING and
    // SERVICE_STOPPED carry check-point 0, every other state, SERVICE_PAUSED among them, the next value of
    // the one counter of the process.
    void ReportStatus(DWORD state, DWORD win32ExitCode);

    // Writes one record of an EVENTLOG_... type to the event log, under the service's name; when the log
    // cannot be had, nothing is written.
    void WriteEventLogEntry(const wchar_t* message, WORD type) const;

  protected:
    // `name` must live as long as the service. `requestStop` is how the uninstall monitor asks the service to
    // end its run.
    DFUServiceBase(const wchar_t* name, CUninstallMonitor::StopRequest requestStop);

  private:
    void RegisterForDeviceNotifications();
    void OnDeviceEvent(DWORD eventType, const DEV_BROADCAST_DEVICEINTERFACE_W& broadcast);
    void OnDeviceArrival(const DEV_BROADCAST_DEVICEINTERFACE_W& broadcast, const wchar_t* classText);

    const wchar_t* name_;
    SERVICE_STATUS status_;
    SERVICE_STATUS_HANDLE statusHandle_ = nullptr;
    HDEVNOTIFY deviceNotification_ = nullptr;  // never unregistered
    CUninstallMonitor uninstallMonitor_;
};
