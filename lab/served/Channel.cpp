#include "lab/served/Channel.h"

#include <array>
#include <optional>

namespace lab {

bool Channel::Fill() {
    std::array<std::uint8_t, 16384> buffer{};
    for (;;) {
        const std::optional<std::size_t> count = socket_.Receive(buffer);
        if (!count) {
            return false;
        }
        received_.insert(received_.end(), buffer.begin(),
                         buffer.begin() + static_cast<std::ptrdiff_t>(*count));
        if (*count < buffer.size()) {
            return true;
        }
    }
}

void Channel::Drop(std::size_t count) {
    received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(count));
}

void Channel::Send(std::span<const std::uint8_t> bytes) {
    waiting_.insert(waiting_.end(), bytes.begin(), bytes.end());
    Flush();
}

bool Channel::Flush() {
    while (!waiting_.empty()) {
        const std::optional<std::size_t> count = socket_.Send(waiting_);
        if (!count) {
            return false;
        }
        if (*count == 0) {
            return true;
        }
        waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(*count));
    }
    return true;
}

}  // namespace lab
