#pragma once

#include <windows.h>
#include <evntrace.h>
#include <evntcons.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace lab::rig {

// A trace session of software messages that the program holds and listens to, which Wine does not have: what
// the laboratory says was traced is told to the program as Windows tells it. Any thread.
class TraceConsumer {
  public:
    // One message; the arguments one behind the other.
    struct Message {
        GUID group{};
        USHORT number = 0;
        ULONG processId = 0;
        std::vector<std::uint8_t> payload;
    };

    // What a "trace-message" command says. Throws std::exception with the reason when it makes no sense.
    [[nodiscard]] static Message MessageOf(const nlohmann::json& command);

    // The session begins, and ends. Messages that come while there is none are lost.
    void Begin();
    void End();
    void Tell(Message message);

    // ProcessTrace: tells the callback each message in the order in which they came, until the session has
    // ended and all are told.
    void Process(PEVENT_RECORD_CALLBACK callback, void* context);

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isRecording_ = false;
    std::deque<Message> messages_;
};

}  // namespace lab::rig
