#include "host/bench/ReadyCamera.h"

#include <stdexcept>

namespace bench {
namespace {

lab::CameraSettings AlwaysReady() {
    lab::CameraSettings settings;
    settings.personality = lab::Personality::Kv400;
    settings.transferSize = kBlockSize;
    settings.blockMs = 0;
    settings.manifestsAtOnce = true;
    settings.detachMs = 0;
    settings.enumerateMs = 0;
    return settings;
}

}  // namespace

ReadyCamera::ReadyCamera()
    : driver_(AlwaysReady()), endpoint_(std::make_shared<CameraEndpoint>(driver_.camera)) {
    driver_.nowMs = StillClock::kNow;
    driver_.EnterDfuMode();
}

void ReadyCamera::MustHold(const std::vector<std::uint8_t>& image) const {
    if (driver_.camera.Flash() != image) {
        throw std::runtime_error("the camera's firmware is not the image");
    }
}

}  // namespace bench
