#include "toast/window/Placement.h"

#include <algorithm>

namespace toast {
namespace {

LONG Within(LONG first, LONG last, LONG length, LONG wanted) {
    return std::max(first, std::min(wanted, last - length));
}

RECT WorkAreaOfMonitor(HMONITOR monitor) {
    MONITORINFO information{};
    information.cbSize = sizeof information;
    GetMonitorInfoW(monitor, &information);
    return information.rcWork;
}

}  // namespace

POINT CornerPosition(const RECT& workArea, const SIZE& window, int margin) {
    return {Within(workArea.left, workArea.right - margin, window.cx, workArea.right),
            Within(workArea.top, workArea.bottom - margin, window.cy, workArea.bottom)};
}

POINT PositionInside(const RECT& workArea, const RECT& window) {
    return {Within(workArea.left, workArea.right, window.right - window.left, window.left),
            Within(workArea.top, workArea.bottom, window.bottom - window.top, window.top)};
}

RECT UserWorkArea() {
    HMONITOR monitor = MonitorFromWindow(GetForegroundWindow(), MONITOR_DEFAULTTONULL);
    if (monitor == nullptr) {
        POINT pointer{};
        GetCursorPos(&pointer);
        monitor = MonitorFromPoint(pointer, MONITOR_DEFAULTTOPRIMARY);
    }
    return WorkAreaOfMonitor(monitor);
}

RECT WorkAreaOf(HWND window) {
    return WorkAreaOfMonitor(MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST));
}

}  // namespace toast
