#include "lab/served/Socket.h"

#ifdef _WIN32
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace lab {
namespace {

#ifdef _WIN32
using Length = int;

bool WouldBlock() {
    return WSAGetLastError() == WSAEWOULDBLOCK;
}

void CloseHandleOf(SocketHandle handle) {
    closesocket(handle);
}

void MakeNonBlocking(SocketHandle handle) {
    u_long isNonBlocking = 1;
    ioctlsocket(handle, static_cast<long>(FIONBIO), &isNonBlocking);
}

// Winsock wants to be begun; it ends with the process.
void BeginSockets() {
    static const int begun = [] {
        WSADATA data{};
        return WSAStartup(MAKEWORD(2, 2), &data);
    }();
    static_cast<void>(begun);
}
#else
using Length = std::size_t;

bool WouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

void CloseHandleOf(SocketHandle handle) {
    close(handle);
}

void MakeNonBlocking(SocketHandle handle) {
    fcntl(handle, F_SETFL, fcntl(handle, F_GETFL) | O_NONBLOCK);
}

void BeginSockets() {}
#endif

#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

[[noreturn]] void Fail(const char* what, std::string_view place) {
    throw std::runtime_error(std::string("cannot ") + what + " " + std::string(place));
}

struct Address {
    sockaddr_storage bytes{};
    socklen_t length = 0;
    int family = 0;
};

template <typename Specific>
Address AddressFrom(const Specific& specific, int family) {
    Address address{.length = sizeof specific, .family = family};
    std::memcpy(&address.bytes, &specific, sizeof specific);
    return address;
}

std::optional<Address> TcpAddress(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string host(text.substr(0, colon));
    const std::string_view digits = text.substr(colon + 1);
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (error != std::errc{} || end != digits.data() + digits.size() ||
        inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
        return std::nullopt;
    }
    return AddressFrom(address, AF_INET);
}

std::optional<Address> UnixAddress([[maybe_unused]] std::string_view path) {
#ifdef _WIN32
    return std::nullopt;
#else
    sockaddr_un address{};
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return std::nullopt;
    }
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), std::begin(address.sun_path));
    return AddressFrom(address, AF_UNIX);
#endif
}

constexpr std::string_view kTcp = "tcp:";
constexpr std::string_view kUnix = "unix:";

Address AddressOf(std::string_view place, const char* what) {
    std::optional<Address> address;
    if (place.starts_with(kTcp)) {
        address = TcpAddress(place.substr(kTcp.size()));
    } else if (place.starts_with(kUnix)) {
        address = UnixAddress(place.substr(kUnix.size()));
    }
    if (!address) {
        Fail(what, place);
    }
    return *address;
}

SocketHandle OpenFor(const Address& address) {
    BeginSockets();
    return socket(address.family, SOCK_STREAM, 0);
}

// Control transfers are small and wait for each other.
void SendAtOnce(SocketHandle handle) {
    const int isOn = 1;
    setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&isOn), sizeof isOn);
}

void RemoveSocketFile(std::string_view place) {
    if (place.starts_with(kUnix)) {
        const std::filesystem::path path(place.substr(kUnix.size()));
        std::error_code ignored;
        if (std::filesystem::is_socket(path, ignored)) {
            std::filesystem::remove(path, ignored);
        }
    }
}

}  // namespace

Socket::Socket(SocketHandle handle) : handle_(handle) {
    if (handle_ != kNoSocket) {
        MakeNonBlocking(handle_);
    }
}

Socket::Socket(Socket&& other) noexcept : handle_(std::exchange(other.handle_, kNoSocket)) {}

Socket& Socket::operator=(Socket&& other) noexcept {
    if (this != &other) {
        Close();
        handle_ = std::exchange(other.handle_, kNoSocket);
    }
    return *this;
}

Socket::~Socket() {
    Close();
}

Socket Socket::Listen(std::string_view place) {
    constexpr int kWaiting = 4;
    const Address address = AddressOf(place, "listen at");
    RemoveSocketFile(place);
    Socket listener(OpenFor(address));
#ifndef _WIN32
    const int isOn = 1;
    setsockopt(listener.handle_, SOL_SOCKET, SO_REUSEADDR, &isOn, sizeof isOn);
#endif
    const auto* const bytes = reinterpret_cast<const sockaddr*>(&address.bytes);
    if (!listener.IsOpen() || bind(listener.handle_, bytes, address.length) != 0 ||
        listen(listener.handle_, kWaiting) != 0) {
        Fail("listen at", place);
    }
    return listener;
}

Socket Socket::Connect(std::string_view place) {
    const Address address = AddressOf(place, "connect to");
    const SocketHandle handle = OpenFor(address);
    const auto* const bytes = reinterpret_cast<const sockaddr*>(&address.bytes);
    if (handle == kNoSocket || connect(handle, bytes, address.length) != 0) {
        const Socket closer(handle);
        Fail("connect to", place);
    }
    SendAtOnce(handle);
    return Socket(handle);
}

void Socket::Close() {
    if (handle_ != kNoSocket) {
        CloseHandleOf(std::exchange(handle_, kNoSocket));
    }
}

Socket Socket::Accept() const {
    const SocketHandle handle = accept(handle_, nullptr, nullptr);
    if (handle != kNoSocket) {
        SendAtOnce(handle);
    }
    return Socket(handle);
}

std::uint16_t Socket::Port() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(handle_, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

std::optional<std::size_t> Socket::Receive(std::span<std::uint8_t> buffer) const {
    const auto most = static_cast<Length>(std::min<std::size_t>(buffer.size(), INT_MAX));
    const auto count = recv(handle_, reinterpret_cast<char*>(buffer.data()), most, 0);
    if (count > 0) {
        return static_cast<std::size_t>(count);
    }
    return count < 0 && WouldBlock() ? std::optional<std::size_t>(0) : std::nullopt;
}

std::optional<std::size_t> Socket::Send(std::span<const std::uint8_t> bytes) const {
    const auto most = static_cast<Length>(std::min<std::size_t>(bytes.size(), INT_MAX));
    const auto count = send(handle_, reinterpret_cast<const char*>(bytes.data()), most, kSendFlags);
    if (count >= 0) {
        return static_cast<std::size_t>(count);
    }
    return WouldBlock() ? std::optional<std::size_t>(0) : std::nullopt;
}

}  // namespace lab
