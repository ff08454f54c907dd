#pragma once

#include "check/MachineState.h"

#include <string>
#include <string_view>
#include <vector>

namespace check {

enum class Severity {
    Fault,    // nobody would be asked, or a camera is in trouble
    Warning,  // works, and should not stay so
    Note,
};

// One thing that is to be said of a machine.
struct Finding {
    Severity severity;
    std::string id;      // for programs: stays the same while the words change
    std::string text;    // one sentence
    std::string advice;  // what to do; may be empty
};

enum class Verdict {
    UpToDate,       // ready, and no camera that is present has another firmware than the image
    UpdateOffered,  // ready, and one has: its user would be asked at the next plug-in
    NotReady,       // nobody would be asked
    CameraTrouble,  // ready, but a camera does not tell its version, or is stuck in DFU mode
};

// How a camera stands to the image.
enum class CameraStanding {
    UpToDate,
    Older,  // than the image
    Newer,  // asked about all the same
    VersionUnknown,
    NotUpdatable,  // listed in no way in which the service takes it
    NotOpened,
    WithoutUnit,  // of the vendor, without the firmware extension unit
    ImageUnknown,
};

struct Judgement {
    Verdict verdict = Verdict::UpToDate;
    // Whether the user would be asked if what is present were plugged in again.
    bool wouldAsk = false;
    // The id of what stops that; empty when nothing does.
    std::string stoppedBy;
    std::string headline;  // the verdict in one line
    std::vector<Finding> findings;
    std::vector<CameraStanding> cameras;  // one for each of the machine's, in their order
};

// Goes the road that the service goes at the next plug-in, and judges what else there is to see.
[[nodiscard]] Judgement Judge(const MachineState& machine);

// Two version texts, four decimal numbers each: negative when the left is older, 0 when they are equal or one
// of them is no version.
[[nodiscard]] int CompareVersions(std::string_view left, std::string_view right);

}  // namespace check
