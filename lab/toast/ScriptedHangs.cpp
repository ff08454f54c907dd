#include "lab/toast/ScriptedHangs.h"

namespace lab::toast {

void ScriptedHangs::Set(const std::string& method, unsigned skip, std::chrono::milliseconds time) {
    const std::lock_guard lock(mutex_);
    hangs_[method] = {skip, time};
}

void ScriptedHangs::Pass(const std::string& method) {
    std::unique_lock lock(mutex_);
    const auto found = hangs_.find(method);
    if (found == hangs_.end()) {
        return;
    }
    if (found->second.skip > 0) {
        --found->second.skip;
        return;
    }
    const std::chrono::milliseconds time = found->second.time;
    hangs_.erase(found);
    const auto isReleased = [this, before = releases_] { return releases_ != before; };
    if (time == std::chrono::milliseconds::zero()) {
        released_.wait(lock, isReleased);
    } else {
        released_.wait_for(lock, time, isReleased);
    }
}

void ScriptedHangs::Release() {
    const std::lock_guard lock(mutex_);
    hangs_.clear();
    ++releases_;
    released_.notify_all();
}

}  // namespace lab::toast
