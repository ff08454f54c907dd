#pragma once

#include "lab/served/Channel.h"
#include "lab/served/Socket.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace lab::test {

// The host's side of a USB/IP connection: writes packets and takes what comes apart. For one thread.
class UsbIpClient {
  public:
    using Bytes = std::vector<std::uint8_t>;

    // The reply to a command.
    struct Reply {
        std::uint32_t code = 0;  // 3: to a submit, 4: to an unlink
        std::uint32_t sequence = 0;
        std::int32_t status = 0;
        std::uint32_t transferred = 0;
        Bytes data = {};

        bool operator==(const Reply&) const = default;
    };

    explicit UsbIpClient(Socket socket) : channel_(std::move(socket)) {}

    void AskForList();
    void Import(const std::string& busId);
    void Submit(std::uint32_t sequence, std::uint32_t endpoint, bool isToHost, std::uint32_t length,
                const Bytes& setup, const Bytes& data = {}, std::uint32_t packets = 0xFFFFFFFF);
    void Unlink(std::uint32_t sequence, std::uint32_t unlinked);
    void Send(const Bytes& bytes) { channel_.Send(bytes); }

    // Takes what has come. False when the server has hung up.
    bool Exchange() { return channel_.Flush() && channel_.Fill(); }
    // So many bytes of it; empty when there are fewer.
    std::optional<Bytes> Take(std::size_t count);
    // One reply of it; the data of a submit whose buffer goes to the host follows.
    std::optional<Reply> TakeReply(bool isToHost);

  private:
    Channel channel_;
};

}  // namespace lab::test
