#include "lab/camera/VideoTopology.h"

#include <algorithm>
#include <stdexcept>

namespace lab {

VideoTopology::VideoTopology(const CameraSettings& settings) {
    constexpr std::size_t kMostUnits = 253;  // numbers are bytes, 0 is none, two are the terminals'
    std::uint8_t source = kCameraTerminal;
    for (const TopologyNode node : settings.nodes) {
        if (node == TopologyNode::ExtensionUnit && !settings.hasExtensionUnit) {
            continue;
        }
        if (units_.size() == kMostUnits) {
            throw std::length_error("a camera's topology has more than 253 units");
        }
        const auto id = static_cast<std::uint8_t>(source + 1);
        units_.push_back({.node = node, .id = id, .source = source});
        source = id;
    }
}

std::uint8_t VideoTopology::OutputTerminal() const {
    return static_cast<std::uint8_t>(OutputSource() + 1);
}

std::uint8_t VideoTopology::OutputSource() const {
    return units_.empty() ? kCameraTerminal : units_.back().id;
}

std::optional<TopologyNode> VideoTopology::FindUnit(std::uint8_t id) const {
    const auto found =
        std::find_if(units_.begin(), units_.end(), [id](const Unit& unit) { return unit.id == id; });
    return found != units_.end() ? std::optional(found->node) : std::nullopt;
}

bool VideoTopology::IsTerminal(std::uint8_t id) const {
    return id == kCameraTerminal || id == OutputTerminal();
}

}  // namespace lab
