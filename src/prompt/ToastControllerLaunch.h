#pragma once

#include <windows.h>

// Makes sure that the toast controller is registered as a COM server, and that the notification platform
// keeps its notifications in the action centre. When its class is missing, starts the controller's executable
// at medium integrity with "/RegServer" and waits for it without a time-out; a start that fails is traced and
// otherwise deliberately ignored, the later activation is what fails then.
//
// Returns 0, or a negative status: the HRESULT of a token or registry error, or 0xFFFFFFFF when the wait
// failed. The keys and tokens that it opens, and the integrity SID, are deliberately kept for the life of the
// process: it runs once.
[[nodiscard]] HRESULT EnsureToastControllerRegistered();
