#include "check/DownloadEstimate.h"

namespace check {
namespace {

// The engine's times, which it keeps to itself; a test runs it and compares.
constexpr std::uint64_t kPollPeriodMs = 200;
constexpr std::uint64_t kBlockTimeoutMs = 5000;
constexpr std::uint64_t kManifestTimeoutMs = 30000;
// GETSTATE, DETACH, GETSTATE, the read of 68 bytes; the empty block, one look at the end, the last GETSTATUS.
constexpr std::uint64_t kTransfersAround = 7;
constexpr std::uint64_t kTransfersOfABlock = 2;

}  // namespace

DownloadEstimate EstimateDownload(std::uint64_t imageSize, std::uint32_t blockSize) {
    DownloadEstimate estimate;
    estimate.blockSize = blockSize;
    estimate.blocks = (imageSize + blockSize - 1) / blockSize;
    if (estimate.blocks != 0) {
        estimate.lastBlock = static_cast<std::uint32_t>(imageSize - (estimate.blocks - 1) * blockSize);
    }
    estimate.transfers = kTransfersOfABlock * estimate.blocks + kTransfersAround;
    estimate.busyOnceMs = (estimate.blocks + 1) * kPollPeriodMs;
    // The last look that counts is one period before the time is over.
    estimate.mostMs =
        estimate.blocks * (kBlockTimeoutMs - kPollPeriodMs) + kManifestTimeoutMs - kPollPeriodMs;
    return estimate;
}

}  // namespace check
