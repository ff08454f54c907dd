#pragma once

#include "lab/camera/DfuTraits.h"
#include "lab/camera/Fault.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lab {

// A node of the running camera's topology.
enum class TopologyNode {
    Processing,     // no vendor's own: the video processing unit
    Foreign,        // vendor-specific, of another unit than the firmware's: refuses its controls
    Broken,         // vendor-specific, and cannot be instantiated
    ExtensionUnit,  // vendor-specific: the firmware's extension unit
};

// What the camera and the port that it is plugged into run at.
enum class Speed { Full, High, Super };

// What a scenario decides about a camera. Times are in milliseconds.
struct CameraSettings {
    // Four numbers, most significant first: 5.10.2.0. Stored in the flash at offsets 401 down to 398.
    std::array<std::uint8_t, 4> version{5, 10, 2, 0};
    Personality personality = Personality::Kv400;
    std::optional<DfuTraits> traits = {};  // in place of the personality's
    std::uint16_t transferSize = 1024;     // wTransferSize of the DFU functional descriptor
    std::uint32_t blockMs = 0;       // time to write one block; 0: written by the time of the next request
    std::uint32_t manifestMs = 300;  // time in dfuMANIFEST
    // The image is manifested while it arrives: dfuMANIFEST is never seen, and manifestMs means nothing.
    bool manifestsAtOnce = false;
    std::uint32_t resetMs = 1000;     // see Personality::Kv400
    std::uint32_t detachMs = 50;      // from the DFU-mode command to leaving the bus
    std::uint32_t enumerateMs = 200;  // from leaving the bus to being back on it
    std::vector<Fault> faults = {};
    // Replaces the configuration descriptor that DFU mode answers; empty: the camera's own.
    std::vector<std::uint8_t> configurationDescriptor = {};
    bool hasExtensionUnit = true;
    // In the order of their numbers; without an extension unit its nodes are left out.
    std::vector<TopologyNode> nodes{TopologyNode::Processing, TopologyNode::ExtensionUnit};
    // A download goes to a second bank of the flash: a power failure loses the image, not the firmware.
    bool hasTwoBanks = false;
    std::uint16_t pageSize = 1024;  // what the flash erases and writes at once
    Speed speed = Speed::High;
    // How long a host waits for an answer in DFU mode: WinUSB's time, unless told another.
    std::uint32_t timeoutMs = 5000;
    // From the arrival of its interface in DFU mode to the moment from which the host's driver opens it;
    // none: never.
    std::optional<std::uint32_t> driverStartMs = 0;
    // iSerialNumber's text, ASCII, at most 126 characters. Without one the camera has no strings at all.
    std::string serialNumber = {};
};

}  // namespace lab
