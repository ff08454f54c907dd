#pragma once

#include "host/bench/StillClock.h"
#include "host/support/CameraEndpoint.h"
#include "tests/lab/camera/CameraDriver.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace bench {

inline constexpr std::size_t kBlockSize = 1024;  // bytes

// A virtual camera in DFU mode that is always ready at once, its endpoint, and the time that stands still
// around them: what one download needs. For one download on one thread.
class ReadyCamera {
  public:
    ReadyCamera();

    [[nodiscard]] const std::shared_ptr<CameraEndpoint>& Endpoint() const { return endpoint_; }
    // Transfers that reached the camera.
    [[nodiscard]] unsigned Transfers() const { return endpoint_->Count(); }
    // Throws std::runtime_error unless the camera's firmware is the image: a download that failed measures
    // nothing.
    void MustHold(const std::vector<std::uint8_t>& image) const;

  private:
    StillClock clock_;
    lab::test::CameraDriver driver_;
    std::shared_ptr<CameraEndpoint> endpoint_;
};

}  // namespace bench
