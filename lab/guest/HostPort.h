#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "lab/guest/FileDescriptor.h"
#include "lab/guest/LineBuffer.h"
#include "lab/guest/Places.h"

namespace lab::guest {

// The connection with the host's program: JSON objects, one a line.
class HostPort {
  public:
    // The virtio-serial port of this name, as soon as it is there and the host has its end open. Throws
    // std::runtime_error when that does not happen within the limit, std::system_error when it cannot be
    // opened.
    [[nodiscard]] static HostPort Open(const Places& places, std::string_view name,
                                       std::chrono::milliseconds limit);
    // Any descriptor that is read and written like a terminal.
    explicit HostPort(FileDescriptor port) : port_(std::move(port)) {}

    // What to poll for reading. A port whose host is gone reports POLLHUP as well.
    [[nodiscard]] int Descriptor() const { return port_.Number(); }

    // Reads what has come; waits when nothing has. False when the host's end is closed.
    bool Receive();
    // The next whole line of what was received.
    [[nodiscard]] std::optional<std::string> NextLine() { return lines_.Next(); }

    // Sends one object as a line; waits until the host takes it. False when its end is closed. Text that is
    // not UTF-8 arrives with replacement characters.
    bool Send(const nlohmann::json& message);

  private:
    FileDescriptor port_;
    LineBuffer lines_;
};

}  // namespace lab::guest
