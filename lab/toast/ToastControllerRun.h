#pragma once

#include <windows.h>

namespace lab::toast {

// Runs the local server on the calling thread until it is no longer used: its class is then revoked. A
// laboratory that listens gets the reports and gives the commands, and ends the server at once by closing the
// connection; without one it works all the same and never answers. COM stays initialised: the process has to
// end next. Fails when COM does, or when the type library is not registered.
[[nodiscard]] HRESULT RunToastController();

}  // namespace lab::toast
