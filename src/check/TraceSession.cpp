#include "check/TraceSession.h"

#include "check/Utf8.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include <objbase.h>

namespace check {
namespace {

constexpr wchar_t kSessionName[] = L"VeyraCameraDfuCheck";
constexpr GUID kControlGuid{0xABF4FD5B, 0xA8F5, 0x4C5D, {0x9E, 0x69, 0x48, 0xBA, 0xFA, 0x0F, 0xA1, 0xE4}};
constexpr ULONG kFlags = 1;
constexpr ULONG kLevel = 8;
constexpr int kGuidTextCapacity = 40;
constexpr std::size_t kNameCapacity = 1024;

// The properties of a session, with room for the two names behind them.
class Properties {
  public:
    Properties()
        : block_((sizeof(EVENT_TRACE_PROPERTIES) + 2 * kNameCapacity * sizeof(wchar_t)) /
                     sizeof(std::uint64_t) +
                 1) {
        EVENT_TRACE_PROPERTIES& properties = Get();
        properties.Wnode.BufferSize = static_cast<ULONG>(block_.size() * sizeof(std::uint64_t));
        properties.Wnode.Flags = WNODE_FLAG_TRACED_GUID;
        properties.Wnode.ClientContext = 2;  // times of the system's clock
        properties.LoggerNameOffset = sizeof(EVENT_TRACE_PROPERTIES);
        properties.LogFileNameOffset =
            static_cast<ULONG>(sizeof(EVENT_TRACE_PROPERTIES) + kNameCapacity * sizeof(wchar_t));
    }

    [[nodiscard]] EVENT_TRACE_PROPERTIES& Get() {
        return *reinterpret_cast<EVENT_TRACE_PROPERTIES*>(block_.data());
    }

    void SetFile(const std::wstring& file) {
        const std::size_t length = std::min(file.size(), kNameCapacity - 1);
        std::memcpy(reinterpret_cast<std::uint8_t*>(block_.data()) + Get().LogFileNameOffset, file.data(),
                    length * sizeof(wchar_t));
    }

  private:
    std::vector<std::uint64_t> block_;
};

std::string GroupText(const GUID& guid) {
    std::array<wchar_t, kGuidTextCapacity> text{};
    StringFromGUID2(guid, text.data(), kGuidTextCapacity);
    std::string narrow = Utf8(text.data());
    narrow = narrow.size() > 2 ? narrow.substr(1, narrow.size() - 2) : narrow;
    std::transform(narrow.begin(), narrow.end(), narrow.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return narrow;
}

}  // namespace

TraceSession::TraceSession(std::wstring file, Listener listener)
    : file_(std::move(file)), listener_(std::move(listener)) {}

TraceSession::~TraceSession() {
    Stop();
}

DWORD TraceSession::Start() {
    DWORD error = StartRecording();
    if (error == ERROR_SUCCESS) {
        error = StartListening();
    }
    if (error != ERROR_SUCCESS) {
        Stop();
    }
    return error;
}

void TraceSession::Stop() {
    if (session_ != 0) {
        Properties properties;
        ControlTraceW(std::exchange(session_, 0), nullptr, &properties.Get(), EVENT_TRACE_CONTROL_STOP);
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    if (consumer_ != INVALID_PROCESSTRACE_HANDLE) {
        CloseTrace(std::exchange(consumer_, INVALID_PROCESSTRACE_HANDLE));
    }
}

DWORD TraceSession::StartRecording() {
    DWORD error = ERROR_ALREADY_EXISTS;
    // One that a killed process has left is ended first.
    for (int attempt = 0; attempt < 2 && error == ERROR_ALREADY_EXISTS; ++attempt) {
        Properties properties;
        properties.Get().LogFileMode = EVENT_TRACE_REAL_TIME_MODE | EVENT_TRACE_FILE_MODE_SEQUENTIAL;
        properties.Get().FlushTimer = 1;
        properties.SetFile(file_);
        error = StartTraceW(&session_, kSessionName, &properties.Get());
        if (error == ERROR_ALREADY_EXISTS) {
            Properties left;
            ControlTraceW(0, kSessionName, &left.Get(), EVENT_TRACE_CONTROL_STOP);
        }
    }
    if (error != ERROR_SUCCESS) {
        session_ = 0;
        return error;
    }
    return EnableTrace(TRUE, kFlags, kLevel, &kControlGuid, session_);
}

DWORD TraceSession::StartListening() {
    EVENT_TRACE_LOGFILEW logFile{};
    logFile.LoggerName = const_cast<wchar_t*>(kSessionName);
    logFile.ProcessTraceMode = PROCESS_TRACE_MODE_REAL_TIME | PROCESS_TRACE_MODE_EVENT_RECORD;
    logFile.EventRecordCallback = &OnRecord;
    logFile.Context = this;
    consumer_ = OpenTraceW(&logFile);
    if (consumer_ == INVALID_PROCESSTRACE_HANDLE) {
        return GetLastError();
    }
    thread_ = std::thread([this] { listeningError_ = ProcessTrace(&consumer_, 1, nullptr, nullptr); });
    return ERROR_SUCCESS;
}

void WINAPI TraceSession::OnRecord(EVENT_RECORD* record) {
    constexpr USHORT kIsMessage = EVENT_HEADER_FLAG_TRACE_MESSAGE;
    if ((record->EventHeader.Flags & kIsMessage) == 0) {
        return;
    }
    const EVENT_HEADER& header = record->EventHeader;
    TraceEvent event;
    event.group = GroupText(header.ProviderId);
    event.number = header.EventDescriptor.Id;
    event.processId = header.ProcessId;
    event.threadId = header.ThreadId;
    event.time = {header.TimeStamp.LowPart, static_cast<DWORD>(header.TimeStamp.HighPart)};
    event.payload = {static_cast<const std::uint8_t*>(record->UserData), record->UserDataLength};
    static_cast<TraceSession*>(record->UserContext)->listener_(event);
}

}  // namespace check
