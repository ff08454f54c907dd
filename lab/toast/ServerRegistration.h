#pragma once

#include <windows.h>

namespace lab::toast {

// Records this program for the machine as the local server of the toast controller's class, and its type
// library with it. The class is written after the library, and a failure takes everything back: a client that
// finds the class key takes the server for registered and never registers it again. Needs write access to
// HKEY_LOCAL_MACHINE.
[[nodiscard]] HRESULT RegisterServer();

// Removes everything that RegisterServer wrote; S_OK when nothing was there. The first failure is the result,
// but the rest is removed all the same.
[[nodiscard]] HRESULT UnregisterServer();

}  // namespace lab::toast
