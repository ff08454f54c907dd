#pragma once

#include <windows.h>

namespace win32 {

// A Win32 error code as an HRESULT: a positive code keeps its low 16 bits and becomes 0x8007xxxx; zero and
// negative values pass unchanged.
[[nodiscard]] HRESULT HResultFromWin32(LONG code);

// The calling thread's last error in the same form. A last error of 0 gives S_OK.
[[nodiscard]] HRESULT HResultFromLastError();

}  // namespace win32
