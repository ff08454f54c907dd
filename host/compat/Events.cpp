#include "Events.h"

#include <utility>

namespace host {

Events& Events::OfProcess() {
    static Events events;
    return events;
}

HANDLE Events::Create(bool isResetByHand, bool isSignalled, const wchar_t* name) {
    const std::scoped_lock guard(mutex_);
    std::shared_ptr<Event> event = name == nullptr ? nullptr : named_[name].lock();
    if (!event) {
        event = std::make_shared<Event>(Event{isResetByHand, isSignalled});
        if (name != nullptr) {
            named_[name] = event;
        }
    }
    lastHandle_ += 4;
    auto* const handle = reinterpret_cast<HANDLE>(lastHandle_);
    handles_[handle] = std::move(event);
    return handle;
}

bool Events::Close(HANDLE handle) {
    const std::scoped_lock guard(mutex_);
    return handles_.erase(handle) == 1;
}

bool Events::Signal(HANDLE handle, bool isSignalled) {
    const std::scoped_lock guard(mutex_);
    const std::shared_ptr<Event> event = Find(handle);
    if (!event) {
        return false;
    }
    event->isSignalled = isSignalled;
    changed_.notify_all();
    return true;
}

std::optional<bool> Events::Wait(HANDLE handle, std::chrono::milliseconds patience) {
    std::unique_lock guard(mutex_);
    const std::shared_ptr<Event> event = Find(handle);
    if (!event) {
        return std::nullopt;
    }
    const bool wasSignalled = changed_.wait_for(guard, patience, [&event] { return event->isSignalled; });
    if (wasSignalled && !event->isResetByHand) {
        event->isSignalled = false;
    }
    return wasSignalled;
}

std::size_t Events::Handles() {
    const std::scoped_lock guard(mutex_);
    return handles_.size();
}

void Events::CloseAll() {
    const std::scoped_lock guard(mutex_);
    handles_.clear();
    named_.clear();
}

std::shared_ptr<Events::Event> Events::Find(HANDLE handle) const {
    const auto found = handles_.find(handle);
    return found == handles_.end() ? nullptr : found->second;
}

}  // namespace host
