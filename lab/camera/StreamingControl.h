#pragma once

#include "lab/camera/CameraSettings.h"
#include "lab/camera/UvcTypes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lab {

// The negotiation of the video streaming interface: its probe and commit controls of the UVC 1.1 standard.
// There is one format, frame and interval, so whatever a host probes becomes that. No pictures come.
class StreamingControl {
  public:
    static constexpr std::uint8_t kProbe = 1;
    static constexpr std::uint8_t kCommit = 2;
    static constexpr std::size_t kSize = 34;
    static constexpr std::size_t kSizeOfUvc10 = 26;

    explicit StreamingControl(Speed speed) : speed_(speed) {}

    // The answer to a request to the host, whole; empty when the control, or this request of it, does not
    // exist.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> Get(UvcRequest request,
                                                               std::uint8_t control) const;
    // Whether SET_CUR is taken: of 26 bytes at least, and when committed of the one format, frame and
    // interval.
    [[nodiscard]] bool Set(std::uint8_t control, std::span<const std::uint8_t> data) const;

  private:
    [[nodiscard]] std::vector<std::uint8_t> Negotiated() const;

    Speed speed_;
};

}  // namespace lab
