#pragma once

#include <winsock2.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include <nlohmann/json_fwd.hpp>

#include "lab/wire/DoneEvents.h"

namespace lab {

// The connection of one laboratory process with the command-line program: JSON objects, one a line.
//
// Send() may be called on any thread. The two handlers of Start() run on the wire's own reader thread, one
// call at a time, and must not destroy the wire. The destructor closes the connection and waits for that
// thread; a process that ends without destroying its wire does no harm, the other side sees a closed
// connection.
class Wire {
  public:
    using CommandHandler = std::function<void(const nlohmann::json& command)>;
    using ClosedHandler = std::function<void()>;

    // Connects to the port that the registry names, says hello as `source` ("rig", "toast") and waits up to
    // five seconds for the stage. Empty when there is no such value, nobody listens, or the answer is no
    // stage.
    [[nodiscard]] static std::unique_ptr<Wire> Connect(std::string_view source);
    ~Wire();
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    // The first line from the other side: {"reply":"stage",...}.
    [[nodiscard]] const nlohmann::json& Stage() const { return *stage_; }

    // Begins to read: every command goes to `onCommand`, the end of the connection to `onClosed` (called
    // once, unless the destructor ended it). A command whose handler throws a std::exception (a missing
    // field, say) is answered as refused, with the exception's text. Call it once; commands that came earlier
    // have waited.
    void Start(CommandHandler onCommand, ClosedHandler onClosed);

    // Sends one object as a line, whole, in the order of the calls; returns when the system has taken it.
    // False when the connection is gone. Text that is not UTF-8 arrives with replacement characters.
    bool Send(const nlohmann::json& message);

  private:
    Wire(SOCKET socket, std::string_view source);
    bool ReadLine(std::string& line);
    void ReadCommands();
    void HandOn(const nlohmann::json& command);

    SOCKET socket_;
    const std::unique_ptr<nlohmann::json> stage_;
    std::string received_;  // bytes behind the last line read; the reader thread's own after Start
    std::mutex sendMutex_;
    CommandHandler onCommand_;
    ClosedHandler onClosed_;
    std::mutex endMutex_;
    bool ending_ = false;  // guarded by endMutex_: the destructor has begun
    std::thread reader_;
};

}  // namespace lab
