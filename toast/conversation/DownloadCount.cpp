#include "toast/conversation/DownloadCount.h"

namespace toast {
namespace {

constexpr std::uint32_t kLastNumber = 0xFFFF;
constexpr TimePoint kSilence = std::chrono::seconds(15);
constexpr std::uint64_t kHundred = 100;

}  // namespace

DownloadCount::DownloadCount(std::optional<std::uint32_t> blocks, TimePoint now)
    : blocks_(blocks), heard_(now) {}

void DownloadCount::Take(std::uint32_t number, TimePoint now) {
    const std::uint32_t rounds = taken_ & ~kLastNumber;
    const bool startsAgain = (taken_ & kLastNumber) == kLastNumber && number == 0;
    const std::uint64_t reached = startsAgain ? std::uint64_t{taken_} + 1 : std::uint64_t{rounds} + number;
    const std::uint64_t most = blocks_ ? std::uint64_t{*blocks_} + 1 : UINT32_MAX;
    if (number > kLastNumber || reached <= taken_ || reached > most) {
        return;
    }
    taken_ = static_cast<std::uint32_t>(reached);
    heard_ = now;
    timeLeft_.Reach(taken_, now);
}

std::optional<int> DownloadCount::Percent() const {
    if (!blocks_) {
        return std::nullopt;
    }
    return static_cast<int>(taken_ * kHundred / (std::uint64_t{*blocks_} + 1));
}

std::optional<std::chrono::seconds> DownloadCount::SecondsLeft(TimePoint now) const {
    return blocks_ && taken_ <= *blocks_ ? timeLeft_.Of(*blocks_, now) : std::nullopt;
}

bool DownloadCount::IsSilent(TimePoint now) const {
    return now - heard_ >= kSilence;
}

DownloadEnding DownloadCount::Ending() const {
    if (!blocks_) {
        return DownloadEnding::kUnknown;
    }
    if (taken_ > *blocks_) {
        return DownloadEnding::kAllTaken;
    }
    return taken_ == *blocks_ && taken_ > 0 ? DownloadEnding::kLastMayBeMissing : DownloadEnding::kStopped;
}

}  // namespace toast
