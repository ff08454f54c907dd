#pragma once

#include <cstdint>

namespace check {

// What the download of an image takes by the engine's own rules: its blocks, its transfers and its waits,
// which are fixed. What the transfers themselves take, and the camera's restart, comes on top.
struct DownloadEstimate {
    std::uint32_t blockSize = 0;  // bytes; the transfer size that the camera tells
    std::uint64_t blocks = 0;
    std::uint32_t lastBlock = 0;  // bytes
    // Of a camera that is ready whenever it is asked.
    std::uint64_t transfers = 0;
    // Milliseconds of waiting: when it is ready whenever it is asked; when it is busy at the first look at
    // each block and at its end; and the most that it may take without the download being given up.
    std::uint64_t leastMs = 0;
    std::uint64_t busyOnceMs = 0;
    std::uint64_t mostMs = 0;
};

// `blockSize` is not 0.
[[nodiscard]] DownloadEstimate EstimateDownload(std::uint64_t imageSize, std::uint32_t blockSize);

}  // namespace check
