#include <windows.h>
#include <evntrace.h>
#include <evntcons.h>

#include <nlohmann/json.hpp>

#include "lab/rig/process/ImportTable.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"

namespace lab::rig {
namespace {

// The one session, and the one who listens to it. No file is written.
constexpr TRACEHANDLE kSession = 1;
constexpr TRACEHANDLE kListener = 2;

decltype(&::StartTraceW) startTrace = nullptr;
decltype(&::EnableTrace) enableTrace = nullptr;
decltype(&::ControlTraceW) controlTrace = nullptr;
decltype(&::OpenTraceW) openTrace = nullptr;
decltype(&::ProcessTrace) processTrace = nullptr;
decltype(&::CloseTrace) closeTrace = nullptr;

PEVENT_RECORD_CALLBACK listener = nullptr;
void* listenersContext = nullptr;

ULONG WINAPI Start(TRACEHANDLE* session, const wchar_t* name, EVENT_TRACE_PROPERTIES* properties) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr) {
        return startTrace(session, name, properties);
    }
    rig->Traces().Begin();
    rig->Record({{"event", "trace-session"}});
    *session = kSession;
    return ERROR_SUCCESS;
}

ULONG WINAPI Enable(ULONG enable, ULONG flags, ULONG level, const GUID* control, TRACEHANDLE session) {
    return Rig::Get() == nullptr ? enableTrace(enable, flags, level, control, session) : ULONG{ERROR_SUCCESS};
}

ULONG WINAPI Control(TRACEHANDLE session, const wchar_t* name, EVENT_TRACE_PROPERTIES* properties,
                     ULONG control) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr) {
        return controlTrace(session, name, properties, control);
    }
    if (control == EVENT_TRACE_CONTROL_STOP) {
        rig->Traces().End();
    }
    return ERROR_SUCCESS;
}

TRACEHANDLE WINAPI Open(EVENT_TRACE_LOGFILEW* logFile) {
    if (Rig::Get() == nullptr) {
        return openTrace(logFile);
    }
    listener = logFile->EventRecordCallback;
    listenersContext = logFile->Context;
    return kListener;
}

ULONG WINAPI Process(TRACEHANDLE* handles, ULONG count, FILETIME* begin, FILETIME* end) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr) {
        return processTrace(handles, count, begin, end);
    }
    rig->Traces().Process(listener, listenersContext);
    return ERROR_SUCCESS;
}

ULONG WINAPI Close(TRACEHANDLE handle) {
    return Rig::Get() == nullptr ? closeTrace(handle) : ULONG{ERROR_SUCCESS};
}

}  // namespace

void RedirectTraceSessions() {
    Redirect("StartTraceW", &Start, startTrace);
    Redirect("EnableTrace", &Enable, enableTrace);
    Redirect("ControlTraceW", &Control, controlTrace);
    Redirect("OpenTraceW", &Open, openTrace);
    Redirect("ProcessTrace", &Process, processTrace);
    Redirect("CloseTrace", &Close, closeTrace);
}

}  // namespace lab::rig
