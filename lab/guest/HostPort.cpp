#include "lab/guest/HostPort.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <nlohmann/json.hpp>

#include "lab/guest/FileContent.h"

namespace lab::guest {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr std::chrono::milliseconds kPause{2};

// The port's node; empty when there is none of this name yet.
fs::path NodeOf(const Places& places, std::string_view name) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(places.sys / "class/virtio-ports", error)) {
        const fs::path node = places.dev / entry.path().filename();
        if (Attribute(entry.path() / "name") == name && fs::exists(node, error)) {
            return node;
        }
    }
    return {};
}

bool HasHost(int port) {
    pollfd entry{.fd = port, .events = POLLOUT, .revents = 0};
    return poll(&entry, 1, 0) >= 0 && (entry.revents & POLLHUP) == 0;
}

// Asks until it is so. Throws std::runtime_error when it is not within the limit.
template <typename Question>
void WaitFor(Question isSo, std::chrono::milliseconds limit, const std::string& otherwise) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!isSo()) {
        if (std::chrono::steady_clock::now() >= end) {
            throw std::runtime_error(otherwise);
        }
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace

HostPort HostPort::Open(const Places& places, std::string_view name, std::chrono::milliseconds limit) {
    fs::path node;
    WaitFor([&] { return !(node = NodeOf(places, name)).empty(); }, limit,
            "there is no virtio-serial port called " + std::string(name));
    HostPort port(FileDescriptor::Open(node, O_RDWR));
    WaitFor([&] { return HasHost(port.Descriptor()); }, limit,
            "nobody is at the other end of " + node.native());
    return port;
}

bool HostPort::Receive() {
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t length = read(port_.Number(), buffer.data(), buffer.size());
        if (length > 0) {
            lines_.Append({buffer.data(), static_cast<std::size_t>(length)});
            return true;
        }
        if (length == 0 || errno != EINTR) {
            return false;
        }
    }
}

bool HostPort::Send(const json& message) {
    std::string line = message.dump(-1, ' ', false, json::error_handler_t::replace);
    line += '\n';
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t length = write(port_.Number(), rest.data(), rest.size());
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0) {
            return false;
        }
        rest.remove_prefix(static_cast<std::size_t>(length));
    }
    return true;
}

}  // namespace lab::guest
