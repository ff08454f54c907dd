#pragma once

#include "lab/served/ServedCamera.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace lab {

// The cameras of a server, all unplugged at first, and the commands of the wire to them. For one thread.
class ServedCameras {
  public:
    using Recorder = ServedCamera::Recorder;

    ServedCameras(const std::vector<CameraSettings>& settings, const Recorder& record);

    [[nodiscard]] std::size_t Count() const { return cameras_.size(); }
    // std::out_of_range when there is no such camera.
    [[nodiscard]] ServedCamera& At(std::size_t camera) { return cameras_.at(camera); }

    void Advance(std::uint64_t nowMs);
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const;

    // Carries out "plug", "unplug", "state" or "save-flash" and returns its answer's line, `done`. Throws
    // std::exception, with a text for the other side, for another command, or when it cannot be carried out.
    [[nodiscard]] nlohmann::json CarryOut(const nlohmann::json& command, std::uint64_t nowMs);

  private:
    [[nodiscard]] ServedCamera& CameraOf(const nlohmann::json& command);

    std::vector<ServedCamera> cameras_;
};

// The cameras of a stage, which may say nothing else to a server. Throws std::exception, with a text that
// names the field, for a stage that is impossible.
[[nodiscard]] std::vector<CameraSettings> CamerasOfStage(const nlohmann::json& stage);
// One camera, in a stage's words.
[[nodiscard]] CameraSettings CameraOfFields(const nlohmann::json& fields);

}  // namespace lab
