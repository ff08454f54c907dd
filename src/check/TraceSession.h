#pragma once

#include <windows.h>
#include <evntrace.h>
#include <evntcons.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <thread>

namespace check {

// One message of the service's software trace.
struct TraceEvent {
    std::string group;  // GUID text, lower case without braces
    unsigned number = 0;
    std::uint32_t processId = 0;
    std::uint32_t threadId = 0;
    FILETIME time{};
    std::span<const std::uint8_t> payload;  // valid during the call alone
};

// A trace session of the service's provider: written to a file, and told live. Needs the rights of an
// administrator or of a performance log user. It would outlive this process, and so ends with this object.
class TraceSession {
  public:
    // `listener` is called on a thread of this object's own.
    using Listener = std::function<void(const TraceEvent& event)>;

    TraceSession(std::wstring file, Listener listener);
    ~TraceSession();

    TraceSession(const TraceSession&) = delete;
    TraceSession& operator=(const TraceSession&) = delete;

    // ERROR_SUCCESS, or why there is no trace.
    [[nodiscard]] DWORD Start();
    // All that was traced has been told and written when it returns. May be called again.
    void Stop();
    // Once it was stopped: ERROR_SUCCESS, or why it was not listened to until then.
    [[nodiscard]] DWORD ListeningError() const { return listeningError_; }

  private:
    static void WINAPI OnRecord(EVENT_RECORD* record);

    [[nodiscard]] DWORD StartRecording();
    [[nodiscard]] DWORD StartListening();

    std::wstring file_;
    Listener listener_;
    TRACEHANDLE session_ = 0;
    TRACEHANDLE consumer_ = INVALID_PROCESSTRACE_HANDLE;
    DWORD listeningError_ = ERROR_SUCCESS;  // of the thread, until it has ended
    std::thread thread_;
};

}  // namespace check
