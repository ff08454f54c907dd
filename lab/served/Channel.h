#pragma once

#include "lab/served/Socket.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace lab {

// One connection with what has come and was not read yet, and what waits to be sent. For one thread.
class Channel {
  public:
    explicit Channel(Socket socket) : socket_(std::move(socket)) {}

    [[nodiscard]] SocketHandle Handle() const { return socket_.Handle(); }

    // Takes what the socket has. False when the other side is gone; what came before can still be read.
    bool Fill();
    // What has come, and the end of some of it.
    [[nodiscard]] std::span<const std::uint8_t> Received() const { return received_; }
    void Drop(std::size_t count);

    // Sends as much as the socket takes, and keeps the rest for Flush().
    void Send(std::span<const std::uint8_t> bytes);
    // False when the other side is gone.
    bool Flush();
    [[nodiscard]] bool WantsToSend() const { return !waiting_.empty(); }

  private:
    Socket socket_;
    std::vector<std::uint8_t> received_;
    std::vector<std::uint8_t> waiting_;
};

}  // namespace lab
