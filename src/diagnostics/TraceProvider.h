#pragma once

#include <windows.h>
#include <evntrace.h>

#include <atomic>
#include <cstddef>

// Levels of the trace messages and scopes; a session that is enabled at a level gets that level and all below
// it.
enum class TraceLevel : UCHAR {
    Critical = 1,
    Error = 2,
    Information = 4,
    Scope = 8,
};

// What the control callback and the emitters share; the layout is that of classic software tracing. The
// fields that a session changes are atomic because the callback runs on a system thread while any thread
// traces; a message around an enable or disable may be emitted or dropped.
struct TraceControlBlock {
    TraceControlBlock* next;          // null: there is only one
    TRACEHANDLE registration;         // from RegisterTraceGuidsW
    std::atomic<TRACEHANDLE> logger;  // 0 while no session is enabled
    UCHAR flagWordCount;              // 1
    std::atomic<UCHAR> level;
    USHORT options;  // bit 1: the session's fields live in the block that `next` points to
    std::atomic<ULONG> flags;
    const GUID* controlGuid;
};
static_assert(sizeof(TraceControlBlock) == 40);
static_assert(offsetof(TraceControlBlock, logger) == 16);
static_assert(offsetof(TraceControlBlock, level) == 25);
static_assert(offsetof(TraceControlBlock, flags) == 28);

// The process's provider of classic software tracing, control GUID {ABF4FD5B-A8F5-4C5D-9E69-48BAFA0FA1E4}.
// The texts of the numbered messages live outside the program, in the trace-format files of trace/.
//
// Every emitter does nothing unless tracing is possible, bit 0 of the session's flags is set and the
// session's level is at least the message's. Any thread may emit.
class TraceProvider {
  public:
    TraceProvider() = delete;

    // Registers the provider with the system. To be called once, before any other trace; it is never undone,
    // the process ends with the registration in place. Failures are ignored: the process then runs untraced.
    static void Register();

    // Whether a message of this level would be emitted now.
    [[nodiscard]] static bool IsEnabled(TraceLevel level);

    // A message with no arguments. `number` is unique within its group.
    static void Emit(TraceLevel level, const GUID& group, USHORT number);
    // A message with one 32-bit value, an HRESULT or a Win32 error.
    static void EmitCode(TraceLevel level, const GUID& group, USHORT number, DWORD code);
    // A message with one narrow text; null is sent as "NULL".
    static void EmitText(TraceLevel level, const GUID& group, USHORT number, const char* text);
    // The message of a USB device-interface arrival, with the text of its class GUID; null is sent as "NULL".
    static void EmitUsbArrival(TraceLevel level, const GUID& group, USHORT number, const wchar_t* classText);
    // The message of entering ("==>") or leaving ("<==") a traced function.
    static void EmitScope(const char* direction, const char* functionName);

    // Called by the system when a session enables (4) or disables (5) the provider; `context` is the control
    // block. Any other request changes nothing and returns ERROR_INVALID_PARAMETER.
    static ULONG WINAPI ControlCallback(WMIDPREQUESTCODE request, PVOID context, ULONG* reserved,
                                        PVOID buffer);
};
