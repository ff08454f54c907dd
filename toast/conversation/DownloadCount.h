#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "toast/conversation/TimeLeft.h"
#include "toast/conversation/TimePoint.h"

namespace toast {

// What can be known of a download from its numbers.
enum class DownloadEnding {
    kAllTaken,          // one block more than the number at its start, which is rounded down
    kLastMayBeMissing,  // exactly that number: whole only if the image has no short last block
    kStopped,           // fewer
    kUnknown,           // it never told how many there are
};

// Counts the blocks of one download.
class DownloadCount {
  public:
    // `blocks` is the number of its start, absent when there was none.
    DownloadCount(std::optional<std::uint32_t> blocks, TimePoint now);

    // A number that was told. One that goes back, or beyond the end, changes nothing; the numbers start again
    // at 0 behind 65535.
    void Take(std::uint32_t number, TimePoint now);

    // The number at its start.
    [[nodiscard]] std::optional<std::uint32_t> Blocks() const { return blocks_; }
    // How many have been taken.
    [[nodiscard]] std::uint32_t Taken() const { return taken_; }
    // 100 only when all have been taken.
    [[nodiscard]] std::optional<int> Percent() const;
    [[nodiscard]] std::optional<std::chrono::seconds> SecondsLeft(TimePoint now) const;
    // Whether it has told nothing new for so long that a person may wonder.
    [[nodiscard]] bool IsSilent(TimePoint now) const;
    // What it comes to if it ends now.
    [[nodiscard]] DownloadEnding Ending() const;

  private:
    const std::optional<std::uint32_t> blocks_;
    std::uint32_t taken_ = 0;
    TimePoint heard_;
    TimeLeft timeLeft_;
};

}  // namespace toast
