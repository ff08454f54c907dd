#include "toast/conversation/TimeLeft.h"

#include <algorithm>

namespace toast {
namespace {

constexpr std::uint32_t kFewestBlocks = 5;
constexpr TimePoint kShortestTime = std::chrono::seconds(2);
constexpr TimePoint kSilence = std::chrono::seconds(10);

}  // namespace

void TimeLeft::Reach(std::uint32_t blocks, TimePoint now) {
    last_ = {blocks, now};
    if (!first_) {
        first_ = last_;
    }
}

std::optional<std::chrono::seconds> TimeLeft::Of(std::uint32_t blocks, TimePoint now) const {
    if (!first_ || last_.blocks - first_->blocks < kFewestBlocks || last_.at - first_->at < kShortestTime ||
        now - last_.at > kSilence) {
        return std::nullopt;
    }
    const std::uint32_t ahead = blocks - std::min(blocks, last_.blocks);
    const TimePoint whole = (last_.at - first_->at) * ahead / (last_.blocks - first_->blocks);
    return std::chrono::ceil<std::chrono::seconds>(std::max(whole - (now - last_.at), TimePoint(0)));
}

}  // namespace toast
