#pragma once

#include <windows.h>

#include <optional>

namespace lab::rig {

// How the host tells that a camera has left its mode.
struct Departure {
    // When the removal notices come: with the leaving, as a rule; at the service's first wait while it
    // handles the arrival of what the camera is next, if it waits then; or once it has handled that. Those of
    // a camera that does not come back come at once.
    enum class Notices { WithTheLeaving, WhileTheArrivalIsHandled, AfterTheArrivalIsHandled };
    Notices notices = Notices::WithTheLeaving;
    // Of every transfer in DFU mode that meets a camera which leaves or has left; none: see WinUsbError and
    // GoneError.
    std::optional<DWORD> transferError = {};
};

}  // namespace lab::rig
