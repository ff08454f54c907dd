#pragma once

#include <windows.h>

// The number of the icon in this program's resources, whose compiler takes no constants.
#define PROGRAM_ICON 1  // NOLINT(cppcoreguidelines-macro-usage)

#ifndef RC_INVOKED
namespace toast {

// This program's icon in the size of a dialog's own icons. It lives as long as the process. Null when there
// is none in the resources.
[[nodiscard]] HICON ProgramIcon();

}  // namespace toast
#endif
