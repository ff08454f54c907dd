#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>

#include "lab/rig/bus/Bus.h"

namespace lab::rig {

// What the service does by itself while nothing happens to it: its sleeps beside the handler of its controls.
// They take their time, as ever; but while the machine rests, the bus' clock goes from the end of one sleep
// to that of the next, so that a year of them takes seconds and none is left out. Thread-safe. A thread that
// is awake between two of its sleeps is not waited for: where several sleep, one may be late.
class Rest {
  public:
    // `bus` outlives this.
    explicit Rest(Bus& bus) : bus_(bus) {}

    // The calling thread sleeps.
    void Sleep(std::chrono::milliseconds time);
    // The machine rests for so long by the bus' clock; returns when that has passed, with the number of
    // sleeps that have ended meanwhile. When nobody has slept in it for a second, or again for 30 seconds
    // behind a sleep, what is left passes at once. One at a time.
    [[nodiscard]] std::uint64_t Pass(std::chrono::milliseconds time);

  private:
    using Lock = std::unique_lock<std::mutex>;

    [[nodiscard]] bool SleepInRest(Lock& lock, std::chrono::milliseconds& left);
    void MoveTo(std::chrono::milliseconds now);
    void End();

    Bus& bus_;
    std::mutex mutex_;                 // guards everything below
    std::condition_variable changed_;  // for those that sleep
    std::condition_variable over_;
    bool isResting_ = false;
    // On a clock that goes in rests alone: now, when the rest is over, and when those wake up that sleep in
    // it.
    std::chrono::milliseconds now_{0};
    std::chrono::milliseconds end_{0};
    std::multiset<std::chrono::milliseconds> wakings_;
    std::uint64_t ended_ = 0;  // sleeps in this rest
};

}  // namespace lab::rig
