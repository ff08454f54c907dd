#pragma once

#include <string>

namespace win32 {

// The system directory (for example C:\Windows\system32), without a trailing backslash. Empty when Windows
// does not tell it.
[[nodiscard]] std::wstring SystemDirectory();

}  // namespace win32
