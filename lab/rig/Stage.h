#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/camera/VirtualCamera.h"
#include "lab/rig/DeviceLinks.h"

namespace lab::rig {

// What the command-line program sets before the play begins.
struct Stage {
    struct TraceSession {
        std::uint8_t level = 0;
        std::uint32_t flags = 0;
    };
    std::optional<TraceSession> trace;
    std::chrono::microseconds transferTime{0};
    // Sleeps of the service's control thread move the play's clock instead of passing; so do its waits that
    // time out.
    bool skipsWaits = false;
    std::vector<CameraSettings> cameras;
    std::vector<LinkStyle> linkStyles;  // of the cameras, in their order; what is missing is a plain one

    // Throws std::runtime_error or a JSON exception, with a text that names the field, for a stage that says
    // something unknown or impossible: a scenario with a slip of the pen must not look like one that passed.
    [[nodiscard]] static Stage FromJson(const nlohmann::json& json);
};

}  // namespace lab::rig
