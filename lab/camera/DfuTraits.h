#pragma once

#include <array>
#include <string_view>
#include <utility>

namespace lab {

struct CameraSettings;

// A named set of traits: a kind of device in DFU mode, named for what it does.
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
    // A KV400 that answers dfuDNBUSY to the first GETSTATUS after a block, though it is written.
    BusyFirst,
    // Takes DETACH for the wish to start the firmware, and does.
    ResetsAtDetach,
    // Takes DETACH for a restart, after which it is in DFU mode again.
    StaysInDfuMode,
    // Takes the 68-byte read for an upload of its flash, in which there is no download.
    ServesUploads,
    // The same, but a block that comes then is taken and dropped.
    DropsBlocks,
    // Is back in dfuIDLE when the image is manifested, and takes an empty one.
    Tolerant,
    // Writes a block where its number says, and hears nothing meanwhile.
    AddressedFlash,
    // Forgets its state at SET_INTERFACE, and waits for a reset that nobody sends.
    Forgetful,
    // A KV400 with a HID interface in front of that of DFU.
    BehindHid,
};

// Their names.
inline constexpr std::array<std::pair<std::string_view, Personality>, 13> kPersonalities{{
    {"kv400", Personality::Kv400},
    {"strict", Personality::Strict},
    {"lenient", Personality::Lenient},
    {"synchronous", Personality::Synchronous},
    {"busy-first", Personality::BusyFirst},
    {"resets-at-detach", Personality::ResetsAtDetach},
    {"stays-in-dfu-mode", Personality::StaysInDfuMode},
    {"serves-uploads", Personality::ServesUploads},
    {"drops-blocks", Personality::DropsBlocks},
    {"tolerant", Personality::Tolerant},
    {"addressed-flash", Personality::AddressedFlash},
    {"forgetful", Personality::Forgetful},
    {"behind-hid", Personality::BehindHid},
}};

// What a device in DFU mode does where the USB DFU 1.1 standard leaves it a choice, and where devices depart
// from the standard. Each goes with each. The defaults are the standard's own, of a device that is not
// manifestation tolerant.
struct DfuTraits {
    enum class Detach {
        Accepted,           // in every state; changes nothing
        Restarts,           // accepted; the device leaves the bus and starts its firmware
        RestartsInDfuMode,  // accepted; the device leaves the bus and comes back in DFU mode
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

    // What the boot loader looks at before it starts the firmware.
    enum class BootCheck {
        Record,  // a page of its own with length and checksum, written last
        // Whether anything is written in the first half of the first page, where a header would stand; of two
        // banks the one in which that was written last. It knows no length: what lies behind an image does
        // not matter.
        FirstPage,
    };

    bool isRuntimeDevice = true;  // has a DFU interface while it runs its firmware
    Detach detach = Detach::Stalls;
    Upload upload = Upload::Flash;
    bool dropsBlocksInUpload = false;  // DNLOAD in dfuUPLOAD-IDLE is taken and dropped
    bool isBusyFirst = false;          // GETSTATUS after a block answers dfuDNBUSY at least once
    bool answersWhileWriting = false;  // GETSTATUS and GETSTATE succeed in dfuDNBUSY
    // A request that comes while a block is written is heard when that is over, and answered then. Together
    // with isBusyFirst the writing begins with the GETSTATUS that answers dfuDNBUSY.
    bool isDeafWhileWriting = false;
    bool answersWhileManifesting = false;  // GETSTATUS and GETSTATE succeed in dfuMANIFEST and -WAIT-RESET
    Manifestation manifestation = Manifestation::WaitsForReset;
    bool stallsInPlace = false;    // a refused request leaves state and status alone
    bool hidesStatus = false;      // bStatus is always OK
    bool hidesWriteTime = false;   // bwPollTimeout is 0 in dfuDNBUSY
    bool writesAtOnce = false;     // a block is written when its DNLOAD ends
    bool takesEmptyImage = false;  // an empty DNLOAD in dfuIDLE is manifested as nothing, and the flash stays
    bool addressesBlocks = false;  // a block goes where its number says, not behind the one before
    SetInterface setInterface = SetInterface::Ignored;
    BootCheck bootCheck = BootCheck::Record;
    // A download that is given up in a flash of one bank puts back what it has overwritten; until then that
    // is what the flash is seen to hold.
    bool putsBack = true;
    // A HID interface comes before that of DFU; its own descriptor has the type and the length of the DFU
    // functional descriptor.
    bool hasHidInFront = false;
};

[[nodiscard]] DfuTraits TraitsOf(Personality personality);
// The camera's own.
[[nodiscard]] DfuTraits TraitsOf(const CameraSettings& settings);

}  // namespace lab
