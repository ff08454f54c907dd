#pragma once

#include "host/bench/ReadyCamera.h"

#include <cstdint>
#include <vector>

namespace bench {

// The engine's transfers for an image on a camera that is always ready, one after the other, and nothing
// else: no answer is looked at. What an engine cannot do without.
void DownloadBare(const ReadyCamera& camera, const std::vector<std::uint8_t>& image);

}  // namespace bench
