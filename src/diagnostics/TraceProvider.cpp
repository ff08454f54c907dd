#include "diagnostics/TraceProvider.h"

#include "diagnostics/TraceMessageGroups.h"

#include <cstring>

namespace {

constexpr GUID kControlGuid{0xABF4FD5B, 0xA8F5, 0x4C5D, {0x9E, 0x69, 0x48, 0xBA, 0xFA, 0x0F, 0xA1, 0xE4}};

constexpr ULONG kMessageFlags =
    TRACE_MESSAGE_SEQUENCE | TRACE_MESSAGE_GUID | TRACE_MESSAGE_TIMESTAMP | TRACE_MESSAGE_SYSTEMINFO;
static_assert(kMessageFlags == 0x2B);

constexpr ULONG kEnabledFlag = 1;
constexpr USHORT kFieldsInNextBlock = 2;
constexpr USHORT kScopeMessage = 12;
constexpr const char* kNullText = "NULL";

// Ends the list of argument pointers and lengths that TraceMessage takes.
constexpr void* kEndOfArguments = nullptr;

TraceControlBlock controlBlock{};

// Points at itself until the provider is registered, then at the control block.
std::atomic<void*> controlPointer{&controlPointer};

bool TracingIsPossible() {
    return controlPointer.load() != &controlPointer;
}

SIZE_T SizeWithTerminator(const char* text) {
    return std::strlen(text) + 1;
}

}  // namespace

void TraceProvider::Register() {
    controlBlock.next = nullptr;
    controlBlock.registration = 0;
    controlBlock.logger = 0;
    controlBlock.flagWordCount = 1;
    controlBlock.level = 0;
    controlBlock.options = 0;
    controlBlock.flags = 0;
    controlBlock.controlGuid = &kControlGuid;
    controlPointer = &controlBlock;

    for (TraceControlBlock* block = &controlBlock; block != nullptr; block = block->next) {
        TRACE_GUID_REGISTRATION registration{block->controlGuid, nullptr};
        RegisterTraceGuidsW(ControlCallback, block, block->controlGuid, 1, &registration, nullptr, nullptr,
                            &block->registration);
    }
}

bool TraceProvider::IsEnabled(TraceLevel level) {
    return TracingIsPossible() && (controlBlock.flags & kEnabledFlag) != 0 &&
           controlBlock.level >= static_cast<UCHAR>(level);
}

void TraceProvider::Emit(TraceLevel level, const GUID& group, USHORT number) {
    if (!IsEnabled(level)) {
        return;
    }
    TraceMessage(controlBlock.logger, kMessageFlags, &group, number, kEndOfArguments);
}

void TraceProvider::EmitCode(TraceLevel level, const GUID& group, USHORT number, DWORD code) {
    if (!IsEnabled(level)) {
        return;
    }
    TraceMessage(controlBlock.logger, kMessageFlags, &group, number, &code, SIZE_T{sizeof code},
                 kEndOfArguments);
}

void TraceProvider::EmitText(TraceLevel level, const GUID& group, USHORT number, const char* text) {
    if (!IsEnabled(level)) {
        return;
    }
    const char* const sent = text != nullptr ? text : kNullText;
    TraceMessage(controlBlock.logger, kMessageFlags, &group, number, sent, SizeWithTerminator(sent),
                 kEndOfArguments);
}

void TraceProvider::EmitUsbArrival(TraceLevel level, const GUID& group, USHORT number,
                                   const wchar_t* classText) {
    if (!IsEnabled(level)) {
        return;
    }
    // Both lengths are deliberate, however short: the trace-format files in the field read exactly these. The
    // label goes out with 2 bytes, and the wide text is measured as a narrow one, which ends at its first
    // character's high byte.
    const char* const sent = classText != nullptr ? reinterpret_cast<const char*>(classText) : kNullText;
    TraceMessage(controlBlock.logger, kMessageFlags, &group, number, "Generic USB Device Arrival", SIZE_T{2},
                 sent, SizeWithTerminator(sent), kEndOfArguments);
}

void TraceProvider::EmitScope(const char* direction, const char* functionName) {
    if (!IsEnabled(TraceLevel::Information)) {
        return;
    }
    const char* const unknown = "Unknown";
    const char* const blank = " ";
    TraceMessage(controlBlock.logger, kMessageFlags, &kScopeTraces, kScopeMessage, direction,
                 SizeWithTerminator(direction), unknown, SizeWithTerminator(unknown), functionName,
                 SizeWithTerminator(functionName), blank, SizeWithTerminator(blank), kEndOfArguments);
}

ULONG WINAPI TraceProvider::ControlCallback(WMIDPREQUESTCODE request, PVOID context, ULONG*, PVOID buffer) {
    TRACEHANDLE logger = 0;
    UCHAR level = 0;
    ULONG flags = 0;
    if (request == WMI_ENABLE_EVENTS) {
        logger = GetTraceLoggerHandle(buffer);
        level = GetTraceEnableLevel(logger);
        flags = GetTraceEnableFlags(logger);
    } else if (request != WMI_DISABLE_EVENTS) {
        return ERROR_INVALID_PARAMETER;
    }

    auto* block = static_cast<TraceControlBlock*>(context);
    if ((block->options & kFieldsInNextBlock) != 0 && block->next != nullptr) {
        block = block->next;
    }
    block->logger = logger;
    block->level = level;
    block->flags = flags;
    return ERROR_SUCCESS;
}
