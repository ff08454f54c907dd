#include "lab/guest/UeventSocket.h"

#include <linux/netlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "lab/guest/KernelError.h"

namespace lab::guest {
namespace {

constexpr int kRoom = 4 * 1024 * 1024;
constexpr unsigned kKernelsGroup = 1;

}  // namespace

UeventSocket::UeventSocket()
    : socket_(Checked(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT),
                      "the socket for uevents")) {
    Checked(setsockopt(socket_.Number(), SOL_SOCKET, SO_RCVBUFFORCE, &kRoom, sizeof kRoom),
            "room for uevents");
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kKernelsGroup;
    Checked(bind(socket_.Number(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            "listening to uevents");
}

std::optional<Uevent> UeventSocket::Next() {
    // The kernel's messages have at most 2,048 bytes of keys, and a path.
    std::array<char, 16 * 1024> buffer{};
    for (;;) {
        sockaddr_nl sender{};
        socklen_t size = sizeof sender;
        const ssize_t length = recvfrom(socket_.Number(), buffer.data(), buffer.size(), 0,
                                        reinterpret_cast<sockaddr*>(&sender), &size);
        if (length < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno == EAGAIN) {
                return std::nullopt;
            }
            throw KernelError(errno, "reading uevents");
        }
        if (sender.nl_pid != 0) {
            continue;
        }
        if (auto uevent = ParseUevent({buffer.data(), static_cast<std::size_t>(length)})) {
            return uevent;
        }
    }
}

}  // namespace lab::guest
