#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

#include "toast/conversation/Event.h"

namespace toast {

// Holds the clients' events until they are taken. All members may be called from every thread.
class EventInbox {
  public:
    // How many events it holds at most. What a client has to say beyond that is lost, but never that it came
    // or left.
    static constexpr std::size_t kCapacity = 256;

    // `busy` is told true with the first event, false once nothing is left to do: inside the calls below,
    // under the inbox's lock.
    explicit EventInbox(std::function<void(bool)> busy);

    // False when it is full. A number that follows a smaller one of the same client takes its place.
    [[nodiscard]] bool Put(Event event);

    // Everything, in the order in which it came.
    [[nodiscard]] std::deque<Event> TakeAll();

    // What was taken is dealt with, and nothing is shown: not busy, unless another event has come.
    void Rest();

  private:
    const std::function<void(bool)> busy_;
    std::mutex mutex_;
    std::deque<Event> events_;
    bool isBusy_ = false;
};

}  // namespace toast
