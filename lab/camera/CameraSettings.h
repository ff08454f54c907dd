#pragma once

#include "lab/camera/Fault.h"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace lab {

// How the device treats requests that the USB DFU 1.1 standard does not allow in a state, and manifestation.
enum class Personality {
    // The KV400's own: no DFU interface while it runs its firmware, and a boot loader that is the standard's
    // state machine with four liberties. DETACH in a DFU state is
    // accepted and leaves the state alone; UPLOAD in dfuIDLE answers the 68-byte firmware status block and
    // stays in dfuIDLE; GETSTATUS and GETSTATE are answered while the device writes a block and while it
    // manifests; a device in dfuMANIFEST-WAIT-RESET answers GETSTATUS once with that state and resets itself
    // on the next one, which goes unanswered, or `resetMs` after it entered the state.
    Kv400,
    // The standard to the letter: what its state table does not list stalls and leads to dfuERROR. After
    // manifestation it waits for a reset, which here means being unplugged and plugged in again.
    Strict,
    // Stalls what it does not allow without leaving its state; answers dfuDNBUSY with poll time 0 until the
    // block is written. Otherwise as Strict.
    Lenient,
    // Synchronous: GETSTATUS after a block always says dfuDNLOAD-IDLE; manifestation ends in dfuIDLE
    // (bitManifestationTolerant is 1). Otherwise as Strict.
    Synchronous,
};

// A node of the running camera's topology.
enum class TopologyNode {
    Processing,     // no vendor's own: the video processing unit
    Foreign,        // vendor-specific, of another unit than the firmware's: refuses its controls
    Broken,         // vendor-specific, and cannot be instantiated
    ExtensionUnit,  // vendor-specific: the firmware's extension unit
};

// What a scenario decides about a camera. Times are in milliseconds.
struct CameraSettings {
    // Four numbers, most significant first: 5.10.2.0. Stored in the flash at offsets 401 down to 398.
    std::array<std::uint8_t, 4> version{5, 10, 2, 0};
    Personality personality = Personality::Kv400;
    std::uint16_t transferSize = 1024;  // wTransferSize of the DFU functional descriptor
    std::uint32_t blockMs = 0;          // time to write one block; 0: written by the time of the next request
    std::uint32_t manifestMs = 300;     // time in dfuMANIFEST
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
    std::uint32_t timeoutMs = 0;  // how long a host waits for a request that nothing answers
    // From the arrival of its interface in DFU mode to the moment from which the host's driver opens it; none:
    // never.
    std::optional<std::uint32_t> driverStartMs = 0;
};

}  // namespace lab
