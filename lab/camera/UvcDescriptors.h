#pragma once

#include "lab/camera/CameraSettings.h"
#include "lab/camera/DescriptorWriter.h"
#include "lab/camera/VideoTopology.h"

#include <cstdint>

namespace lab {

// The running camera's video function in its configuration descriptor: the association of its two
// interfaces, the topology, one MJPEG format with one frame, and one isochronous endpoint, which only
// alternate setting 1 has.
void WriteVideoFunction(DescriptorWriter& writer, const VideoTopology& topology, Speed speed);

// Bytes of the isochronous endpoint's packet at this speed.
[[nodiscard]] std::uint16_t VideoPacketSize(Speed speed);

}  // namespace lab
