#include "toast/window/EventInbox.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <variant>

namespace toast {
namespace {

std::optional<std::uint32_t> NumberOf(const Event& event) {
    const auto* line = std::get_if<StatusLine>(&event.what);
    const auto* taken = line != nullptr ? std::get_if<BlocksTaken>(line) : nullptr;
    return taken != nullptr ? std::optional(taken->number) : std::nullopt;
}

// Whether the one says all that the other has said. 0 stays: the numbers start again there.
bool Supersedes(const Event& later, const Event& earlier) {
    const std::optional<std::uint32_t> number = NumberOf(earlier);
    return later.client == earlier.client && number && *number > 0 && NumberOf(later) > number;
}

bool IsComingOrGoing(const Event& event) {
    return std::holds_alternative<ClientCame>(event.what) || std::holds_alternative<ClientLeft>(event.what);
}

}  // namespace

EventInbox::EventInbox(std::function<void(bool)> busy) : busy_(std::move(busy)) {}

bool EventInbox::Put(Event event) {
    const std::lock_guard lock(mutex_);
    if (!events_.empty() && Supersedes(event, events_.back())) {
        events_.back() = std::move(event);
        return true;
    }
    if (events_.size() >= kCapacity && !IsComingOrGoing(event)) {
        return false;
    }
    events_.push_back(std::move(event));
    if (!isBusy_) {
        isBusy_ = true;
        busy_(true);
    }
    return true;
}

std::deque<Event> EventInbox::TakeAll() {
    const std::lock_guard lock(mutex_);
    return std::exchange(events_, {});
}

void EventInbox::Rest() {
    const std::lock_guard lock(mutex_);
    if (isBusy_ && events_.empty()) {
        isBusy_ = false;
        busy_(false);
    }
}

}  // namespace toast
