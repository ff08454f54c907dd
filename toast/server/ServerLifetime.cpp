#include "toast/server/ServerLifetime.h"

#include <algorithm>
#include <utility>

namespace toast {

ServerLifetime::Hold::Hold(std::shared_ptr<ServerLifetime> lifetime) : lifetime_(std::move(lifetime)) {
    lifetime_->AddHold();
}

ServerLifetime::Hold::~Hold() {
    lifetime_->RemoveHold();
}

void ServerLifetime::AddHold() {
    const std::lock_guard lock(mutex_);
    ++holds_;
    changed_.notify_all();
}

void ServerLifetime::RemoveHold() {
    const std::lock_guard lock(mutex_);
    if (holds_ > 0 && --holds_ == 0) {
        unusedUntil_ = Clock::now() + times_.grace;
    }
    changed_.notify_all();
}

void ServerLifetime::WaitUntilUnused(const std::function<void()>& pulse) {
    std::unique_lock lock(mutex_);
    auto nextPulse = Clock::now() + times_.pulse;
    while (Clock::now() < End()) {
        changed_.wait_until(lock, std::min(End(), nextPulse));
        if (Clock::now() >= nextPulse) {
            nextPulse = Clock::now() + times_.pulse;
            lock.unlock();
            pulse();
            lock.lock();
        }
    }
}

void ServerLifetime::WaitUntilReleased(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, patience, [this] { return holds_ == 0; });
}

ServerLifetime::Clock::time_point ServerLifetime::End() const {
    return holds_ > 0 ? Clock::time_point::max() : unusedUntil_;
}

}  // namespace toast
