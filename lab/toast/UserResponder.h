#pragma once

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <queue>
#include <thread>

#include "lab/toast/ServerParts.h"

namespace lab::toast {

// Fires the user's answers at the advised sinks on a thread of its own, in the order in which they are
// posted: an answer never comes inside a call of the client, and a sink that takes its time holds up nothing
// but the next answer.
class UserResponder {
  public:
    explicit UserResponder(std::shared_ptr<ServerParts> parts);
    // Waits for the thread, unless StopWithin has given it up.
    ~UserResponder();

    UserResponder(const UserResponder&) = delete;
    UserResponder& operator=(const UserResponder&) = delete;

    // Queues an answer; the laboratory hears of it when every sink has returned. From any thread.
    void Post(LONG code);

    // Drops what is queued and ends the thread. False when a sink has not returned in time: the thread is
    // then given up and the process must end without returning to it.
    [[nodiscard]] bool StopWithin(std::chrono::milliseconds patience);

  private:
    // Shared with the thread, which may outlive this object.
    struct Queue {
        std::mutex mutex;
        std::condition_variable changed;
        std::queue<LONG> codes;
        bool stopping = false;
        bool ended = false;
    };

    static void Run(const std::shared_ptr<Queue>& queue, const std::shared_ptr<ServerParts>& parts);
    [[nodiscard]] static std::optional<LONG> NextCode(Queue& queue);
    static void Fire(ServerParts& parts, LONG code);
    void BeginStop();

    const std::shared_ptr<Queue> queue_ = std::make_shared<Queue>();
    std::thread thread_;
};

}  // namespace lab::toast
