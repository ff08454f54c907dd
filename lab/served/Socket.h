#pragma once

#ifdef _WIN32
#include <winsock2.h>
#endif

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace lab {

#ifdef _WIN32
using SocketHandle = SOCKET;
inline constexpr SocketHandle kNoSocket = INVALID_SOCKET;
#else
using SocketHandle = int;
inline constexpr SocketHandle kNoSocket = -1;
#endif

// A stream socket that never blocks, owned. For one thread.
class Socket {
  public:
    Socket() = default;
    // Takes the handle, and makes it one that does not block.
    explicit Socket(SocketHandle handle);
    Socket(Socket&& other) noexcept;
    Socket& operator=(Socket&& other) noexcept;
    ~Socket();

    // Where to listen, or whom to connect to: "tcp:ADDRESS:PORT" with a numeric IPv4 address, or "unix:PATH",
    // which Windows has not here. A socket file that is in the way of a listener is removed. Both throw
    // std::runtime_error, with a text that names the place, when that fails; connecting waits.
    [[nodiscard]] static Socket Listen(std::string_view place);
    [[nodiscard]] static Socket Connect(std::string_view place);

    [[nodiscard]] SocketHandle Handle() const { return handle_; }
    [[nodiscard]] bool IsOpen() const { return handle_ != kNoSocket; }
    void Close();

    // Of a listener: the next that has come; not open when nobody has.
    [[nodiscard]] Socket Accept() const;
    // The TCP port that a listener has got.
    [[nodiscard]] std::uint16_t Port() const;

    // Bytes moved; 0 when nothing can be now, empty when the other side is gone.
    [[nodiscard]] std::optional<std::size_t> Receive(std::span<std::uint8_t> buffer) const;
    [[nodiscard]] std::optional<std::size_t> Send(std::span<const std::uint8_t> bytes) const;

  private:
    SocketHandle handle_ = kNoSocket;
};

}  // namespace lab
