#include "tests/support/TraceRecorder.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace test_support {

WMIDPREQUEST TraceRecorder::callback_ = nullptr;
void* TraceRecorder::context_ = nullptr;

DWORD TracedMessage::Code() const {
    DWORD code = 0;
    if (arguments.size() != 1 || arguments[0].size() != sizeof code) {
        throw std::logic_error("the message's argument is not one 32-bit value");
    }
    std::memcpy(&code, arguments[0].data(), sizeof code);
    return code;
}

TraceRecorder::TraceRecorder()
    : registerTraceGuids_("RegisterTraceGuidsW", OnRegisterTraceGuids),
      getTraceLoggerHandle_("GetTraceLoggerHandle", OnGetTraceLoggerHandle),
      getTraceEnableLevel_("GetTraceEnableLevel", OnGetTraceEnableLevel),
      getTraceEnableFlags_("GetTraceEnableFlags", OnGetTraceEnableFlags),
      traceMessage_("TraceMessage", OnTraceMessage) {}

TraceRecorder::~TraceRecorder() {
    DisableSession();
}

void TraceRecorder::EnableSession(UCHAR level, ULONG flags) {
    session_ = {.enabled = true, .level = level, .flags = flags};
    Notify(WMI_ENABLE_EVENTS);
}

void TraceRecorder::DisableSession() {
    session_ = {};
    Notify(WMI_DISABLE_EVENTS);
}

void TraceRecorder::Notify(WMIDPREQUESTCODE request) {
    if (callback_ != nullptr) {
        ULONG bufferSize = sizeof session_;
        callback_(request, context_, &bufferSize, &session_);
    }
}

std::vector<TraceRegistration> TraceRecorder::Registrations() const {
    const std::scoped_lock guard(lock_);
    return registrations_;
}

std::vector<TracedMessage> TraceRecorder::Messages() const {
    const std::scoped_lock guard(lock_);
    return messages_;
}

std::vector<TracedMessage> TraceRecorder::Find(const GUID& group, USHORT number) const {
    const auto all = Messages();
    std::vector<TracedMessage> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found), [&](const TracedMessage& message) {
        return message.group == group && message.number == number;
    });
    return found;
}

std::vector<USHORT> TraceRecorder::Numbers(const GUID& group) const {
    std::vector<USHORT> numbers;
    for (const TracedMessage& message : Messages()) {
        if (message.group == group) {
            numbers.push_back(message.number);
        }
    }
    return numbers;
}

void TraceRecorder::Forget() {
    const std::scoped_lock guard(lock_);
    messages_.clear();
}

ULONG WINAPI TraceRecorder::OnRegisterTraceGuids(WMIDPREQUEST callback, void* context,
                                                 const GUID* controlGuid, ULONG guidCount,
                                                 TRACE_GUID_REGISTRATION* guids, const wchar_t* mofImagePath,
                                                 const wchar_t* mofResourceName,
                                                 TRACEHANDLE* registrationHandle) {
    TraceRecorder& recorder = *current_;
    const bool hasGuids = guidCount > 0 && guids != nullptr;
    {
        const std::scoped_lock guard(recorder.lock_);
        recorder.registrations_.push_back(
            {.callback = callback,
             .context = context,
             .controlGuid = controlGuid != nullptr ? *controlGuid : GUID{},
             .guidCount = guidCount,
             .firstGuid = hasGuids && guids[0].Guid != nullptr ? *guids[0].Guid : GUID{},
             .firstGuidHandle = hasGuids ? guids[0].RegHandle : nullptr,
             .hasMofImagePath = mofImagePath != nullptr,
             .hasMofResourceName = mofResourceName != nullptr,
             .registrationHandle = registrationHandle,
             .messagesBefore = recorder.messages_.size()});
    }
    if (recorder.registrationResult_ != ERROR_SUCCESS) {
        return recorder.registrationResult_;
    }
    callback_ = callback;
    context_ = context;
    if (registrationHandle != nullptr) {
        *registrationHandle = kRegistrationHandle;
    }
    if (recorder.session_.enabled) {
        recorder.Notify(WMI_ENABLE_EVENTS);
    }
    return ERROR_SUCCESS;
}

TRACEHANDLE WINAPI TraceRecorder::OnGetTraceLoggerHandle(void* buffer) {
    return buffer == &current_->session_ ? kLogger : static_cast<TRACEHANDLE>(-1);
}

UCHAR WINAPI TraceRecorder::OnGetTraceEnableLevel(TRACEHANDLE logger) {
    return logger == kLogger ? current_->session_.level : UCHAR{0};
}

ULONG WINAPI TraceRecorder::OnGetTraceEnableFlags(TRACEHANDLE logger) {
    return logger == kLogger ? current_->session_.flags : 0;
}

ULONG __cdecl TraceRecorder::OnTraceMessage(TRACEHANDLE logger, ULONG flags, const GUID* group, ULONG number,
                                            ...) {
    TracedMessage message{.logger = logger,
                          .flags = flags,
                          .group = *group,
                          .number = static_cast<USHORT>(number),
                          .arguments = {}};
    va_list rest;
    va_start(rest, number);
    for (const void* data = va_arg(rest, const void*); data != nullptr; data = va_arg(rest, const void*)) {
        const SIZE_T size = va_arg(rest, SIZE_T);
        message.arguments.emplace_back(static_cast<const char*>(data), size);
    }
    va_end(rest);

    const std::scoped_lock guard(current_->lock_);
    current_->messages_.push_back(std::move(message));
    return ERROR_SUCCESS;
}

}  // namespace test_support
