#pragma once

#include <windows.h>

namespace toast {

// Where the upper left corner of a window goes that lies in the lower right corner of a monitor's work area,
// `margin` pixels from its edges, or at the area's upper left corner where it is too large.
[[nodiscard]] POINT CornerPosition(const RECT& workArea, const SIZE& window, int margin);

// Where a window's upper left corner goes so that the window moves no further than it must to be inside.
[[nodiscard]] POINT PositionInside(const RECT& workArea, const RECT& window);

// The work area of the monitor where the user is: that of the window with the focus, or of the pointer.
[[nodiscard]] RECT UserWorkArea();

// The work area of the monitor that most of a window is on.
[[nodiscard]] RECT WorkAreaOf(HWND window);

}  // namespace toast
