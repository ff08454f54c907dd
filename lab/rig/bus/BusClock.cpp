#include "lab/rig/bus/BusClock.h"

namespace lab::rig {

std::uint64_t BusClock::NowMs() const {
    const auto passed = frozenSince_.value_or(Steady::now()) - begin_ - frozen_;
    return static_cast<std::uint64_t>(
        (std::chrono::duration_cast<std::chrono::milliseconds>(passed) + skipped_).count());
}

void BusClock::Freeze() {
    if (!frozenSince_) {
        frozenSince_ = Steady::now();
    }
}

bool BusClock::Thaw() {
    if (!frozenSince_) {
        return false;
    }
    frozen_ += Steady::now() - *frozenSince_;
    frozenSince_.reset();
    return true;
}

}  // namespace lab::rig
