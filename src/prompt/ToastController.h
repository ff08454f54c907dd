#pragma once

#include "prompt/IToastCntr.h"

// Activates the toast controller, starting its server when it is not running. `server` is null unless S_OK is
// returned; otherwise the failing call's HRESULT. COM must be initialised on the calling thread.
[[nodiscard]] HRESULT CreateToastController(IToastCntrPtr& server);
