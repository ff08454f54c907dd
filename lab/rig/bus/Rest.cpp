#include "lab/rig/bus/Rest.h"

#include <algorithm>

namespace lab::rig {
namespace {

using std::chrono::milliseconds;
using Steady = std::chrono::steady_clock;

// In which a thread that is about to sleep does so: the first of them, if there is one at all, and one that
// is known to be there, however busy the machine is.
constexpr std::chrono::seconds kPatienceWithTheFirst{1};
constexpr std::chrono::seconds kPatience{30};

}  // namespace

void Rest::Sleep(milliseconds time) {
    Lock lock(mutex_);
    milliseconds left = time;
    while (!isResting_ || !SleepInRest(lock, left)) {
        const auto due = Steady::now() + left;
        if (!changed_.wait_until(lock, due, [this] { return isResting_; })) {
            return;
        }
        left = std::max(std::chrono::ceil<milliseconds>(due - Steady::now()), milliseconds(0));
    }
}

std::uint64_t Rest::Pass(milliseconds time) {
    Lock lock(mutex_);
    end_ = now_ + time;
    ended_ = 0;
    isResting_ = true;
    changed_.notify_all();
    while (isResting_) {
        const std::uint64_t before = ended_;
        const auto patience = before == 0 ? kPatienceWithTheFirst : kPatience;
        const bool isOver = over_.wait_for(lock, patience, [this] { return !isResting_; });
        if (!isOver && wakings_.empty() && ended_ == before) {
            End();
        }
    }
    return ended_;
}

// False when the rest is over before the sleep is, of which so much is left then.
bool Rest::SleepInRest(Lock& lock, milliseconds& left) {
    const milliseconds due = now_ + left;
    const auto waking = wakings_.insert(due);
    while (isResting_ && waking != wakings_.begin()) {
        changed_.wait(lock);
    }
    if (isResting_ && due > end_) {
        End();
    }
    const bool isNext = isResting_;
    if (isNext) {
        MoveTo(due);
        ++ended_;
    }
    wakings_.erase(waking);
    if (!wakings_.empty()) {
        changed_.notify_all();
    }
    left = due - now_;
    return isNext;
}

void Rest::MoveTo(milliseconds now) {
    bus_.Rest(now - now_);
    now_ = now;
}

void Rest::End() {
    MoveTo(end_);
    isResting_ = false;
    changed_.notify_all();
    over_.notify_all();
}

}  // namespace lab::rig
