#pragma once

namespace lab {

struct CameraSettings;

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

// What a device in DFU mode does where the USB DFU 1.1 standard leaves it a choice, and where devices depart
// from the standard. Each goes with each. The defaults are the standard's own, of a device that is not
// manifestation tolerant.
struct DfuTraits {
    enum class Detach {
        Accepted,  // in every state; changes nothing
        Restarts,  // accepted; the device leaves the bus and starts its firmware
        Stalls,
    };
    // UPLOAD in dfuIDLE.
    enum class Upload {
        StatusBlock,  // answers the status block and stays in dfuIDLE
        Flash,        // the flash's content; leads to dfuUPLOAD-IDLE when there is more than was asked for
        Stalls,
    };
    // Where dfuMANIFEST leads.
    enum class Manifestation {
        WaitsForReset,  // to dfuMANIFEST-WAIT-RESET
        ResetsItself,   // there, and then off the bus without a reset from the host
        Tolerant,       // to dfuMANIFEST-SYNC and dfuIDLE; bitManifestationTolerant
    };
    // SET_INTERFACE, which the host's driver sends when an alternate setting is chosen.
    enum class SetInterface {
        Ignored,
        ResetsState,  // to dfuIDLE
        Stalls,
    };

    bool isRuntimeDevice = true;  // has a DFU interface while it runs its firmware
    Detach detach = Detach::Stalls;
    Upload upload = Upload::Flash;
    bool dropsBlocksInUpload = false;      // DNLOAD in dfuUPLOAD-IDLE is taken and dropped
    bool isBusyFirst = false;              // GETSTATUS after a block answers dfuDNBUSY at least once
    bool answersWhileWriting = false;      // GETSTATUS and GETSTATE succeed in dfuDNBUSY
    bool answersWhileManifesting = false;  // GETSTATUS and GETSTATE succeed in dfuMANIFEST and -WAIT-RESET
    Manifestation manifestation = Manifestation::WaitsForReset;
    bool stallsInPlace = false;    // a refused request leaves state and status alone
    bool hidesWriteTime = false;   // bwPollTimeout is 0 in dfuDNBUSY
    bool writesAtOnce = false;     // a block is written when its DNLOAD ends
    bool takesEmptyImage = false;  // an empty DNLOAD in dfuIDLE is manifested as nothing, and the flash stays
    bool addressesBlocks = false;  // a block goes where its number says, not behind the one before
    SetInterface setInterface = SetInterface::Ignored;
};

[[nodiscard]] DfuTraits TraitsOf(Personality personality);
// The camera's own.
[[nodiscard]] DfuTraits TraitsOf(const CameraSettings& settings);

}  // namespace lab
