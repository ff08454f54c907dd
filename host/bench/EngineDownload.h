#pragma once

#include "host/bench/ReadyCamera.h"

#include <cstdint>
#include <vector>

namespace bench {

// The engine downloads the image as the service has it done: with the probe of 68 bytes and a progress
// callback, here one that only keeps the number. Throws std::runtime_error when the engine reports a failure.
void DownloadWithEngine(const ReadyCamera& camera, const std::vector<std::uint8_t>& image);

}  // namespace bench
