#include "lab/toast/ServerLifetime.h"

#include <utility>

namespace lab::toast {

ServerLifetime::Hold::Hold(std::shared_ptr<ServerLifetime> lifetime) : lifetime_(std::move(lifetime)) {
    lifetime_->AddHold();
}

ServerLifetime::Hold::~Hold() {
    lifetime_->RemoveHold();
}

void ServerLifetime::AddHold() {
    {
        const std::lock_guard lock(mutex_);
        ++holds_;
        everHeld_ = true;
    }
    changed_.notify_all();
}

void ServerLifetime::RemoveHold() {
    {
        const std::lock_guard lock(mutex_);
        if (holds_ > 0) {
            --holds_;
        }
    }
    changed_.notify_all();
}

void ServerLifetime::LeaveNow() {
    {
        const std::lock_guard lock(mutex_);
        leaving_ = true;
    }
    changed_.notify_all();
}

void ServerLifetime::WaitUntilUnused() {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, kFirstClientPatience, [this] { return leaving_ || everHeld_; })) {
        return;
    }
    while (!leaving_) {
        changed_.wait(lock, [this] { return leaving_ || holds_ == 0; });
        if (!changed_.wait_for(lock, kGrace, [this] { return leaving_ || holds_ > 0; })) {
            return;
        }
    }
}

void ServerLifetime::WaitUntilReleased() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return leaving_ || holds_ == 0; });
}

}  // namespace lab::toast
