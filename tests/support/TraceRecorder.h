#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>
#include <evntrace.h>

#include <mutex>
#include <string>
#include <vector>

namespace test_support {

// The groups of trace messages, as their trace-format files know them.
inline constexpr GUID kServiceBaseGroup{
    0xD3A7CCDD, 0x8055, 0x340B, {0x3A, 0x0C, 0x14, 0xF1, 0xE4, 0xFB, 0x33, 0x39}};
inline constexpr GUID kUpdateServiceGroup{
    0xFBFBAA6B, 0xFCBC, 0x3745, {0xAC, 0x1C, 0xE1, 0x04, 0xC7, 0xB6, 0xCD, 0xA1}};
inline constexpr GUID kScopeGroup{
    0x5B0FDCD3, 0xA0E5, 0x3094, {0x0E, 0xFF, 0xD5, 0xD1, 0x62, 0x87, 0x96, 0xF4}};

// One call of TraceMessage.
struct TracedMessage {
    TRACEHANDLE logger;
    ULONG flags;
    GUID group;
    USHORT number;
    std::vector<std::string> arguments;  // each with exactly the bytes that were sent, terminators included

    // The only argument as a 32-bit value; throws std::logic_error when it is anything else.
    [[nodiscard]] DWORD Code() const;
};

// One call of RegisterTraceGuidsW.
struct TraceRegistration {
    WMIDPREQUEST callback;
    void* context;
    GUID controlGuid;
    ULONG guidCount;
    GUID firstGuid;
    HANDLE firstGuidHandle;
    bool hasMofImagePath;
    bool hasMofResourceName;
    TRACEHANDLE* registrationHandle;
    std::size_t messagesBefore;  // those that the recorder had got
};

// Stands in for the system's classic tracing: takes registrations, plays one session that can be enabled and
// disabled, and records every message that a provider sends. Messages may come from any thread.
//
// A session that is enabled before the provider registers reaches it on registration, as in Windows. The
// destructor disables the session, so that nothing is left enabled for the next test. Only one exists at a
// time.
class TraceRecorder : public OnlyOne<TraceRecorder> {
  public:
    static constexpr TRACEHANDLE kLogger = 0x0000123400005678;
    static constexpr TRACEHANDLE kRegistrationHandle = 0x0000987600005432;

    TraceRecorder();
    ~TraceRecorder();

    void EnableSession(UCHAR level, ULONG flags = 1);
    void DisableSession();

    // The result of RegisterTraceGuidsW from now on; a failed registration is recorded and gets no session.
    void SetRegistrationResult(ULONG result) { registrationResult_ = result; }

    [[nodiscard]] std::vector<TraceRegistration> Registrations() const;
    [[nodiscard]] std::vector<TracedMessage> Messages() const;
    // The messages of one group and number.
    [[nodiscard]] std::vector<TracedMessage> Find(const GUID& group, USHORT number) const;
    // The numbers of one group's messages in the order in which they came.
    [[nodiscard]] std::vector<USHORT> Numbers(const GUID& group) const;
    void Forget();

    // What a session's control request carries: its level and flags are asked for through its logger handle.
    [[nodiscard]] void* SessionBuffer() { return &session_; }

  private:
    struct Session {
        bool enabled = false;
        UCHAR level = 0;
        ULONG flags = 0;
    };

    static ULONG WINAPI OnRegisterTraceGuids(WMIDPREQUEST callback, void* context, const GUID* controlGuid,
                                             ULONG guidCount, TRACE_GUID_REGISTRATION* guids,
                                             const wchar_t* mofImagePath, const wchar_t* mofResourceName,
                                             TRACEHANDLE* registrationHandle);
    static TRACEHANDLE WINAPI OnGetTraceLoggerHandle(void* buffer);
    static UCHAR WINAPI OnGetTraceEnableLevel(TRACEHANDLE logger);
    static ULONG WINAPI OnGetTraceEnableFlags(TRACEHANDLE logger);
    // The number is a USHORT to the caller, which is promoted where a parameter stands in front of dots.
    static ULONG __cdecl OnTraceMessage(TRACEHANDLE logger, ULONG flags, const GUID* group, ULONG number,
                                        ...);

    void Notify(WMIDPREQUESTCODE request);

    // The last registration that succeeded, of this recorder or an earlier one: a provider registers once and
    // stays registered.
    static WMIDPREQUEST callback_;
    static void* context_;

    mutable std::mutex lock_;
    Session session_;
    ULONG registrationResult_ = ERROR_SUCCESS;
    std::vector<TraceRegistration> registrations_;
    std::vector<TracedMessage> messages_;

    ImportRedirect registerTraceGuids_;
    ImportRedirect getTraceLoggerHandle_;
    ImportRedirect getTraceEnableLevel_;
    ImportRedirect getTraceEnableFlags_;
    ImportRedirect traceMessage_;
};

}  // namespace test_support
