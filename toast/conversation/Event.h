#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "toast/conversation/StatusLine.h"

namespace toast {

// One object that a client has activated; never the same twice.
using ClientId = std::uint64_t;

// What a person is asked: whether to replace one firmware by another. Texts as ShownText makes them.
struct Question {
    std::wstring present;  // the camera's version
    std::wstring offered;  // the image's version

    bool operator==(const Question&) const = default;
};

struct ClientCame {};
struct ClientLeft {};
struct DownloadOver {};

// What a client does.
struct Event {
    ClientId client;
    std::variant<ClientCame, Question, StatusLine, DownloadOver, ClientLeft> what;
};

// Where the clients' events go.
class EventReceiver {
  public:
    // Takes an event from any thread and returns at once. False when there are too many: the event is lost.
    [[nodiscard]] virtual bool Post(Event event) = 0;

  protected:
    EventReceiver() = default;
    EventReceiver(const EventReceiver&) = default;
    EventReceiver& operator=(const EventReceiver&) = default;
    ~EventReceiver() = default;
};

}  // namespace toast
