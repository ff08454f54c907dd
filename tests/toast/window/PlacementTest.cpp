#include "toast/window/Placement.h"

#include <gtest/gtest.h>

#include "tests/support/ImportRedirect.h"

namespace toast {
namespace {

constexpr RECT kArea{100, 50, 1100, 850};

bool IsAt(const POINT& point, LONG x, LONG y) {
    return point.x == x && point.y == y;
}

TEST(Placement, IsInTheLowerRightCorner) {
    EXPECT_TRUE(IsAt(CornerPosition(kArea, {400, 200}, 16), 684, 634));
}

TEST(Placement, IsAtTheUpperLeftOfAnAreaThatIsTooSmall) {
    EXPECT_TRUE(IsAt(CornerPosition(kArea, {1200, 900}, 16), 100, 50));
    EXPECT_TRUE(IsAt(PositionInside(kArea, {0, 0, 1200, 900}), 100, 50));
}

TEST(Placement, MovesAWindowNoFurtherThanItMust) {
    EXPECT_TRUE(IsAt(PositionInside(kArea, {300, 300, 700, 500}), 300, 300));
    EXPECT_TRUE(IsAt(PositionInside(kArea, {900, 700, 1300, 900}), 700, 650));
    EXPECT_TRUE(IsAt(PositionInside(kArea, {0, 0, 400, 200}), 100, 50));
}

HMONITOR userMonitor = nullptr;
HMONITOR askedFor = nullptr;

HMONITOR WINAPI MonitorOfWindow(HWND, DWORD flags) {
    return flags == MONITOR_DEFAULTTONULL ? userMonitor : reinterpret_cast<HMONITOR>(3);
}

HMONITOR WINAPI MonitorOfPoint(POINT, DWORD) {
    return reinterpret_cast<HMONITOR>(2);
}

BOOL WINAPI Information(HMONITOR monitor, MONITORINFO* information) {
    askedFor = monitor;
    information->rcWork = kArea;
    return TRUE;
}

TEST(Placement, IsOnTheMonitorOfTheFocusOrElseOfThePointer) {
    const test_support::ImportRedirect window("MonitorFromWindow", &MonitorOfWindow);
    const test_support::ImportRedirect point("MonitorFromPoint", &MonitorOfPoint);
    const test_support::ImportRedirect information("GetMonitorInfoW", &Information);
    userMonitor = reinterpret_cast<HMONITOR>(1);
    EXPECT_EQ(UserWorkArea().right, 1100);
    EXPECT_EQ(askedFor, reinterpret_cast<HMONITOR>(1));
    userMonitor = nullptr;
    EXPECT_EQ(UserWorkArea().bottom, 850);
    EXPECT_EQ(askedFor, reinterpret_cast<HMONITOR>(2));
    EXPECT_EQ(WorkAreaOf(nullptr).left, 100);
    EXPECT_EQ(askedFor, reinterpret_cast<HMONITOR>(3));
}

}  // namespace
}  // namespace toast
