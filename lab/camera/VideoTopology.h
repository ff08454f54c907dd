#pragma once

#include "lab/camera/CameraSettings.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace lab {

// The units of the running camera's video function, one behind the other between its camera terminal and its
// output terminal, and the numbers by which descriptors and requests name them.
class VideoTopology {
  public:
    struct Unit {
        TopologyNode node;
        std::uint8_t id;
        std::uint8_t source;  // the one in front of it
    };

    static constexpr std::uint8_t kCameraTerminal = 1;

    // CameraSettings::nodes in their order; without an extension unit its nodes are left out. Throws
    // std::length_error when there are more than can be numbered.
    explicit VideoTopology(const CameraSettings& settings);

    [[nodiscard]] const std::vector<Unit>& Units() const { return units_; }
    [[nodiscard]] std::uint8_t OutputTerminal() const;
    // What stands in front of the output terminal.
    [[nodiscard]] std::uint8_t OutputSource() const;

    // The unit of this number; empty for a terminal or nothing.
    [[nodiscard]] std::optional<TopologyNode> FindUnit(std::uint8_t id) const;
    [[nodiscard]] bool IsTerminal(std::uint8_t id) const;

  private:
    std::vector<Unit> units_;
};

}  // namespace lab
