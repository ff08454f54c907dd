#include <windows.h>
#include <wmistr.h>
#include <evntrace.h>

#include <cstdarg>
#include <cstdint>
#include <span>

#include <nlohmann/json.hpp>

#include "lab/rig/process/ImportTable.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"
#include "lab/rig/text/GuidText.h"
#include "lab/vocabulary/HexText.h"

namespace lab::rig {
namespace {

using nlohmann::json;

// Any value will do that nobody else hands out; the upper half shows whether all 64 bits are kept.
constexpr TRACEHANDLE kSessionHandle = 0x5E551057'00000001;
constexpr SIZE_T kMaximumMessage = 8 * 1024;

decltype(&::RegisterTraceGuidsW) registerTraceGuids = nullptr;
decltype(&::GetTraceLoggerHandle) getTraceLoggerHandle = nullptr;
decltype(&::GetTraceEnableLevel) getTraceEnableLevel = nullptr;
decltype(&::GetTraceEnableFlags) getTraceEnableFlags = nullptr;

const RunSettings::TraceSession* Session() {
    Rig* const rig = Rig::Get();
    return rig != nullptr && rig->Settings().trace ? &*rig->Settings().trace : nullptr;
}

// What the system hands to the control callback: the session's handle lies in the header's history field.
void EnableEvents(WMIDPREQUEST request, void* context) {
    WNODE_HEADER header{};
    header.BufferSize = sizeof header;
    header.HistoricalContext = kSessionHandle;
    header.Flags = WNODE_FLAG_TRACED_GUID;
    ULONG size = sizeof header;
    request(WMI_ENABLE_EVENTS, context, &size, &header);
}

ULONG WINAPI RegisterTraceGuidsEnabling(WMIDPREQUEST request, void* context, const GUID* control,
                                        ULONG guidCount, TRACE_GUID_REGISTRATION* registrations,
                                        const wchar_t* imagePath, const wchar_t* resourceName,
                                        TRACEHANDLE* handle) {
    const ULONG result = registerTraceGuids(request, context, control, guidCount, registrations, imagePath,
                                            resourceName, handle);
    Rig* const rig = Rig::Get();
    if (rig == nullptr || result != ERROR_SUCCESS || request == nullptr || control == nullptr) {
        return result;
    }
    rig->Record({{"event", "trace-registered"}, {"control", GuidText(*control)}});
    if (Session() != nullptr) {
        EnableEvents(request, context);
    }
    return result;
}

TRACEHANDLE WINAPI LoggerHandle(void* buffer) {
    if (Session() == nullptr) {
        return getTraceLoggerHandle(buffer);
    }
    const auto* const header = static_cast<const WNODE_HEADER*>(buffer);
    if (header == nullptr || header->BufferSize < sizeof *header) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return static_cast<TRACEHANDLE>(-1);
    }
    return header->HistoricalContext;
}

UCHAR WINAPI EnableLevel(TRACEHANDLE session) {
    const auto* const enabled = Session();
    if (enabled == nullptr) {
        return getTraceEnableLevel(session);
    }
    SetLastError(session == kSessionHandle ? ERROR_SUCCESS : ERROR_INVALID_HANDLE);
    return session == kSessionHandle ? enabled->level : UCHAR{0};
}

ULONG WINAPI EnableFlags(TRACEHANDLE session) {
    const auto* const enabled = Session();
    if (enabled == nullptr) {
        return getTraceEnableFlags(session);
    }
    SetLastError(session == kSessionHandle ? ERROR_SUCCESS : ERROR_INVALID_HANDLE);
    return session == kSessionHandle ? enabled->flags : 0;
}

// The arguments are pairs of an address and a length, up to a null address. Without a session of the rig's
// there is no handle that could be valid, so nothing is passed through. The number is a USHORT to the caller:
// the parameter in front of the dots must not be of a type that is promoted there.
ULONG __cdecl TraceMessageRecorded(TRACEHANDLE session, ULONG flags, const GUID* group, ULONG number, ...) {
    if (Session() == nullptr || session != kSessionHandle) {
        return ERROR_INVALID_HANDLE;
    }
    json arguments = json::array();
    SIZE_T total = 0;
    va_list list;
    va_start(list, number);
    for (const auto* bytes = va_arg(list, const std::uint8_t*); bytes != nullptr && total <= kMaximumMessage;
         bytes = va_arg(list, const std::uint8_t*)) {
        const SIZE_T length = va_arg(list, SIZE_T);
        total = length <= kMaximumMessage ? total + length : length;
        if (total <= kMaximumMessage) {
            arguments.push_back(HexText(std::span(bytes, length)));
        }
    }
    va_end(list);
    if (total > kMaximumMessage) {
        return ERROR_MORE_DATA;
    }
    Rig::Get()->Record({{"event", "trace"},
                        {"group", group != nullptr ? GuidText(*group) : std::string()},
                        {"number", static_cast<USHORT>(number)},
                        {"flags", flags},
                        {"arguments", arguments}});
    return ERROR_SUCCESS;
}

}  // namespace

void RedirectTracing() {
    Redirect("RegisterTraceGuidsW", &RegisterTraceGuidsEnabling, registerTraceGuids);
    Redirect("GetTraceLoggerHandle", &LoggerHandle, getTraceLoggerHandle);
    Redirect("GetTraceEnableLevel", &EnableLevel, getTraceEnableLevel);
    Redirect("GetTraceEnableFlags", &EnableFlags, getTraceEnableFlags);
    Redirect("TraceMessage", &TraceMessageRecorded);
}

}  // namespace lab::rig
