#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace lab {

// Replies that a host waits for: those that come late, and those that never come and that it has to take
// back. For one thread.
class HeldReplies {
  public:
    using Send = std::function<void()>;

    // The reply to the packet `id` is sent at this time; none: never.
    void Hold(std::uint64_t id, std::optional<std::uint64_t> dueMs, Send send) {
        held_.push_back({id, dueMs, std::move(send)});
    }

    // The host takes a packet back. Whether it was held.
    bool Cancel(std::uint64_t id) {
        return std::erase_if(held_, [id](const Held& each) { return each.id == id; }) != 0;
    }

    void SendDue(std::uint64_t nowMs) {
        for (auto next = First(); next != held_.end() && next->dueMs && *next->dueMs <= nowMs;
             next = First()) {
            const Send send = std::move(next->send);
            held_.erase(next);
            send();
        }
    }

    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const {
        std::optional<std::uint64_t> first;
        for (const Held& each : held_) {
            if (each.dueMs) {
                first = std::min(first.value_or(*each.dueMs), *each.dueMs);
            }
        }
        return first;
    }

    void Clear() { held_.clear(); }

  private:
    struct Held {
        std::uint64_t id;
        std::optional<std::uint64_t> dueMs;
        Send send;
    };

    // The one that is due first; one that is never due when there is no other.
    [[nodiscard]] std::vector<Held>::iterator First() {
        return std::min_element(held_.begin(), held_.end(), [](const Held& left, const Held& right) {
            return left.dueMs && (!right.dueMs || *left.dueMs < *right.dueMs);
        });
    }

    std::vector<Held> held_;
};

}  // namespace lab
