#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "toast/conversation/TimePoint.h"

namespace toast {

// How much longer a download takes, by the blocks that have been taken so far: what they took on average
// since the first of them, which itself may have waited for the camera to erase its flash.
class TimeLeft {
  public:
    // So many blocks have been taken now: more than ever before.
    void Reach(std::uint32_t blocks, TimePoint now);

    // The time for what is left of `blocks`. Nothing before there is enough to judge by (five blocks, two
    // seconds), or after the download has been silent for so long that the average says nothing any more.
    [[nodiscard]] std::optional<std::chrono::seconds> Of(std::uint32_t blocks, TimePoint now) const;

  private:
    struct Mark {
        std::uint32_t blocks;
        TimePoint at;
    };

    std::optional<Mark> first_;
    Mark last_{};
};

}  // namespace toast
