#pragma once

#include "lab/camera/CameraSettings.h"

namespace lab {

// In what a personality departs from the USB DFU 1.1 standard's state table, and what it makes of its
// options.
struct DfuTraits {
    bool isRuntimeDevice = true;           // has a DFU interface while it runs its firmware
    bool acceptsDetach = false;            // DETACH succeeds in every state and changes nothing
    bool uploadsStatusBlock = false;       // UPLOAD in dfuIDLE answers the status block and stays there
    bool answersWhileWriting = false;      // GETSTATUS and GETSTATE succeed in dfuDNBUSY
    bool answersWhileManifesting = false;  // GETSTATUS and GETSTATE succeed in dfuMANIFEST and -WAIT-RESET
    bool resetsItself = false;             // leaves dfuMANIFEST-WAIT-RESET without a reset from the host
    bool stallsInPlace = false;            // a refused request leaves state and status alone
    bool hidesWriteTime = false;           // bwPollTimeout is 0 in dfuDNBUSY
    bool writesAtOnce = false;             // a block is written when its DNLOAD ends
    bool isManifestationTolerant = false;  // bitManifestationTolerant
};

[[nodiscard]] DfuTraits TraitsOf(Personality personality);

}  // namespace lab
