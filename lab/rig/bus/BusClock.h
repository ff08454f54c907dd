#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace lab::rig {

// The time of a run, in milliseconds since it began: what really passes, and what is skipped besides; it can
// stand still. Not thread-safe: the owner locks.
class BusClock {
  public:
    [[nodiscard]] std::uint64_t NowMs() const;

    void Skip(std::chrono::milliseconds time) { skipped_ += time; }

    // From here on it stands still, but for what is skipped; doing it again changes nothing.
    void Freeze();
    // False when it did not stand still.
    bool Thaw();
    [[nodiscard]] bool IsFrozen() const { return frozenSince_.has_value(); }

  private:
    using Steady = std::chrono::steady_clock;

    const Steady::time_point begin_ = Steady::now();
    std::chrono::milliseconds skipped_{0};
    Steady::duration frozen_{0};  // how long it has stood still before
    std::optional<Steady::time_point> frozenSince_;
};

}  // namespace lab::rig
