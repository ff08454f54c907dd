#pragma once

#include <chrono>
#include <mutex>

namespace lab::rig {

// Lets each control transfer take its time on the bus. The system can sleep only by the millisecond: shorter
// times are saved up until they make one, so that many transfers together take as long as they should, to the
// millisecond.
class TransferTime {
  public:
    explicit TransferTime(std::chrono::microseconds ofOneTransfer) : ofOneTransfer_(ofOneTransfer) {}

    // Blocks the calling thread for what is due.
    void Spend();

  private:
    const std::chrono::microseconds ofOneTransfer_;
    std::mutex mutex_;
    std::chrono::nanoseconds due_{0};  // below zero when a sleep took longer than asked
};

}  // namespace lab::rig
