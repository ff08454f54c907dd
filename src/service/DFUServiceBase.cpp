#include "service/DFUServiceBase.h"

#include "diagnostics/TraceMessageGroups.h"
#include "diagnostics/TraceProvider.h"
#include "win32/Win32Error.h"

#include <array>
#include <memory>
#include <utility>

#include <objbase.h>

namespace {

enum ServiceBaseMessage : USHORT {
    kStartFailedWithCode = 10,
    kStartFailed = 11,
    kCameraArrived = 12,
    kUsbDeviceArrived = 13,
    kStopFailedWithCode = 14,
    kPauseFailedWithCode = 15,
    kContinueFailedWithCode = 16,
    kShutdownFailedWithCode = 17,
};

constexpr GUID kSensorCameraCategory{
    0x24E552D7, 0x6523, 0x47F7, {0xA6, 0x47, 0xD3, 0x46, 0x5B, 0xF1, 0xF5, 0xCA}};
constexpr GUID kVideoCameraCategory{
    0xE5323777, 0xF976, 0x4F5B, {0x9B, 0x55, 0xB9, 0x46, 0x99, 0xC4, 0x6E, 0x44}};
constexpr GUID kUsbDeviceInterface{
    0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};

DFUServiceBase* instance = nullptr;

// One for the whole process, never reset: a stop after a start goes on with the numbering.
DWORD nextCheckPoint = 1;

bool IsCameraClass(const GUID& interfaceClass) {
    return interfaceClass == kSensorCameraCategory || interfaceClass == kVideoCameraCategory;
}

struct CoTaskMemDeleter {
    void operator()(void* memory) const { CoTaskMemFree(memory); }
};
using ClassText = std::unique_ptr<wchar_t, CoTaskMemDeleter>;

// The class GUID in braces; null when there is no memory for it.
ClassText FormatClass(const GUID& interfaceClass) {
    wchar_t* text = nullptr;
    return SUCCEEDED(StringFromCLSID(interfaceClass, &text)) ? ClassText(text) : nullptr;
}

}  // namespace

DFUServiceBase::DFUServiceBase(const wchar_t* name, CUninstallMonitor::StopRequest requestStop)
    : name_(name),
      status_{.dwServiceType = SERVICE_WIN32_OWN_PROCESS,
              .dwCurrentState = SERVICE_START_PENDING,
              .dwControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN,
              .dwWin32ExitCode = NO_ERROR,
              .dwServiceSpecificExitCode = 0,
              .dwCheckPoint = 0,
              .dwWaitHint = 0},
      uninstallMonitor_(std::move(requestStop)) {}

DFUServiceBase::~DFUServiceBase() = default;

void DFUServiceBase::OnStart(DWORD, wchar_t**) {}

void DFUServiceBase::OnStop() {}

void DFUServiceBase::OnPause() {}

void DFUServiceBase::OnContinue() {}

void DFUServiceBase::OnShutdown() {}

void DFUServiceBase::SetInstance(DFUServiceBase* service) {
    instance = service;
}

void WINAPI DFUServiceBase::ServiceMain(DWORD argc, wchar_t** argv) {
    instance->statusHandle_ = RegisterServiceCtrlHandlerExW(instance->name_, ServiceCtrlHandler, instance);
    if (instance->statusHandle_ == nullptr) {
        win32::ThrowLastError();
    }
    instance->RegisterForDeviceNotifications();
    instance->Start(argc, argv);
}

void DFUServiceBase::RegisterForDeviceNotifications() {
    DEV_BROADCAST_DEVICEINTERFACE_W filter{};
    static_assert(sizeof filter == 32);
    filter.dbcc_size = sizeof filter;
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    // Every class is delivered and told apart in the handler. Without a registration there are no events, and
    // no failure.
    deviceNotification_ = RegisterDeviceNotificationW(
        statusHandle_, &filter, DEVICE_NOTIFY_SERVICE_HANDLE | DEVICE_NOTIFY_ALL_INTERFACE_CLASSES);
}

DWORD WINAPI DFUServiceBase::ServiceCtrlHandler(DWORD control, DWORD eventType, void* eventData,
                                                void* context) {
    auto& service = *static_cast<DFUServiceBase*>(context);
    switch (control) {
        case SERVICE_CONTROL_STOP:
            service.Stop();
            break;
        case SERVICE_CONTROL_PAUSE:
            service.Pause();
            break;
        case SERVICE_CONTROL_CONTINUE:
            service.Continue();
            break;
        case SERVICE_CONTROL_SHUTDOWN:
            service.Shutdown();
            break;
        case SERVICE_CONTROL_DEVICEEVENT:
            if (eventData != nullptr) {
                service.OnDeviceEvent(eventType,
                                      *static_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(eventData));
            }
            break;
        default:
            break;
    }
    return NO_ERROR;
}

void DFUServiceBase::Start(DWORD argc, wchar_t** argv) {
    try {
        ReportStatus(SERVICE_START_PENDING, NO_ERROR);
        OnStart(argc, argv);
        ReportStatus(SERVICE_RUNNING, NO_ERROR);
    } catch (const win32::Win32Error& error) {
        TraceProvider::Emit(TraceLevel::Information, kServiceBaseTraces, kStartFailedWithCode);
        ReportStatus(SERVICE_STOPPED, error.Code());
    } catch (...) {
        TraceProvider::Emit(TraceLevel::Error, kServiceBaseTraces, kStartFailed);
        ReportStatus(SERVICE_STOPPED, NO_ERROR);
    }
}

void DFUServiceBase::Stop() {
    const DWORD previousState = status_.dwCurrentState;
    try {
        ReportStatus(SERVICE_STOP_PENDING, NO_ERROR);
        OnStop();
        ReportStatus(SERVICE_STOPPED, NO_ERROR);
    } catch (const win32::Win32Error& error) {
        TraceProvider::EmitCode(TraceLevel::Error, kServiceBaseTraces, kStopFailedWithCode, error.Code());
        ReportStatus(previousState, NO_ERROR);
    } catch (...) {
        WriteEventLogEntry(L"Service failed to stop.", EVENTLOG_ERROR_TYPE);
        ReportStatus(previousState, NO_ERROR);
    }
}

void DFUServiceBase::Pause() {
    try {
        ReportStatus(SERVICE_PAUSE_PENDING, NO_ERROR);
        OnPause();
        ReportStatus(SERVICE_PAUSED, NO_ERROR);
    } catch (const win32::Win32Error& error) {
        TraceProvider::EmitCode(TraceLevel::Error, kServiceBaseTraces, kPauseFailedWithCode, error.Code());
        ReportStatus(SERVICE_RUNNING, NO_ERROR);
    } catch (...) {
        WriteEventLogEntry(L"Service failed to pause.", EVENTLOG_ERROR_TYPE);
        ReportStatus(SERVICE_RUNNING, NO_ERROR);
    }
}

void DFUServiceBase::Continue() {
    try {
        ReportStatus(SERVICE_CONTINUE_PENDING, NO_ERROR);
        OnContinue();
        ReportStatus(SERVICE_RUNNING, NO_ERROR);
    } catch (const win32::Win32Error& error) {
        TraceProvider::EmitCode(TraceLevel::Error, kServiceBaseTraces, kContinueFailedWithCode, error.Code());
        ReportStatus(SERVICE_PAUSED, NO_ERROR);
    } catch (...) {
        WriteEventLogEntry(L"Service failed to resume.", EVENTLOG_ERROR_TYPE);
        ReportStatus(SERVICE_PAUSED, NO_ERROR);
    }
}

void DFUServiceBase::Shutdown() {
    try {
        OnShutdown();
        ReportStatus(SERVICE_STOPPED, NO_ERROR);
    } catch (const win32::Win32Error& error) {
        TraceProvider::EmitCode(TraceLevel::Error, kServiceBaseTraces, kShutdownFailedWithCode, error.Code());
    } catch (...) {
        WriteEventLogEntry(L"Service failed to shut down.", EVENTLOG_ERROR_TYPE);
    }
}

void DFUServiceBase::ReportStatus(DWORD state, DWORD win32ExitCode) {
    const bool isSettled = state == SERVICE_RUNNING || state == SERVICE_STOPPED;
    status_.dwCurrentState = state;
    status_.dwWin32ExitCode = win32ExitCode;
    status_.dwWaitHint = 0;
    status_.dwCheckPoint = isSettled ? 0 : nextCheckPoint++;
    SetServiceStatus(statusHandle_, &status_);
}

void DFUServiceBase::OnDeviceEvent(DWORD eventType, const DEV_BROADCAST_DEVICEINTERFACE_W& broadcast) {
    OutputDebugStringW(L"SERVICE_CONTROL_DEVICEEVENT");
    const ClassText classText = FormatClass(broadcast.dbcc_classguid);
    try {
        if (eventType == DBT_DEVICEARRIVAL) {
            OnDeviceArrival(broadcast, classText.get());
        } else if (eventType == DBT_DEVICEREMOVECOMPLETE && IsCameraClass(broadcast.dbcc_classguid)) {
            uninstallMonitor_.Check();
        }
    } catch (...) {
        // Nothing that goes wrong in a pass, a COM error of a prompt among it, may end the service.
    }
}

void DFUServiceBase::OnDeviceArrival(const DEV_BROADCAST_DEVICEINTERFACE_W& broadcast,
                                     const wchar_t* classText) {
    const wchar_t* const debugText = classText != nullptr ? classText : L"";
    if (IsCameraClass(broadcast.dbcc_classguid)) {
        TraceProvider::Emit(TraceLevel::Information, kServiceBaseTraces, kCameraArrived);
        uninstallMonitor_.Stop();
        OutputDebugStringW(debugText);
        OnCameraArrival(broadcast);
    } else if (broadcast.dbcc_classguid == kUsbDeviceInterface) {
        TraceProvider::EmitUsbArrival(TraceLevel::Information, kServiceBaseTraces, kUsbDeviceArrived,
                                      classText);
        OutputDebugStringW(debugText);
        uninstallMonitor_.Stop();
        OnUsbDeviceArrival();
    }
}

void DFUServiceBase::WriteEventLogEntry(const wchar_t* message, WORD type) const {
    const HANDLE source = RegisterEventSourceW(nullptr, name_);
    if (source == nullptr) {
        return;
    }
    std::array<const wchar_t*, 2> strings{name_, message};
    ReportEventW(source, type, 0, 0, nullptr, static_cast<WORD>(strings.size()), 0, strings.data(), nullptr);
    DeregisterEventSource(source);
}
