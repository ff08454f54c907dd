#pragma once

#include "check/DownloadEstimate.h"
#include "check/Judgement.h"
#include "check/MachineState.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace check {

// What the service would do with one camera, were it plugged in now.
struct CameraRehearsal {
    std::string name;
    std::string device;
    std::vector<std::string> steps;  // a sentence each, the last one what it comes to
    unsigned questions = 0;          // how often the user is asked
    bool wouldDownload = false;      // without a question, or once the user has accepted
};

struct Rehearsal {
    std::vector<CameraRehearsal> cameras;
    // For the block sizes that come into question; empty when there is no image to download.
    std::vector<DownloadEstimate> downloads;
};

// Goes through it in words: nothing is sent. `blockSize` is that of the camera, if the caller knows it.
[[nodiscard]] Rehearsal Rehearse(const MachineState& machine, const Judgement& judgement,
                                 std::optional<std::uint32_t> blockSize);

[[nodiscard]] std::string RehearsalText(const MachineState& machine, const Judgement& judgement,
                                        const Rehearsal& rehearsal);
[[nodiscard]] std::string RehearsalJson(const MachineState& machine, const Judgement& judgement,
                                        const Rehearsal& rehearsal, std::string_view programVersion);

}  // namespace check
