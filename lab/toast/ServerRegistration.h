#pragma once

#include <windows.h>

namespace lab::toast {

// Records this program for the machine as the local server of the toast controller's class, with its type
// library and an AppID: it runs as the interactive user, and LocalService may launch, activate and call it.
// The class is written last, and a failure takes everything back: a client that finds the class key takes the
// server for registered and never registers it again. Needs write access to HKEY_LOCAL_MACHINE.
[[nodiscard]] HRESULT RegisterServer();

// Removes everything that RegisterServer wrote; S_OK when nothing was there. The first failure is the result,
// but the rest is removed all the same.
[[nodiscard]] HRESULT UnregisterServer();

}  // namespace lab::toast
