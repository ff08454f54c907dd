#include <gtest/gtest.h>

#include <windows.h>
#include <dbt.h>

#include <string>
#include <vector>

#include "lab/rig/bus/InterfaceClasses.h"
#include "lab/rig/service/EventBurst.h"

using namespace lab::rig;

namespace {

struct Seen {
    DWORD control;
    DWORD type;
    std::wstring link;
};

// Notes what it is handed, and takes its time over it.
struct Handler {
    std::vector<Seen> seen;
    DWORD takesMs = 0;

    static DWORD WINAPI Handle(DWORD control, DWORD type, void* data, void* context) {
        auto& handler = *static_cast<Handler*>(context);
        handler.seen.push_back(
            {control, type, static_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(data)->dbcc_name});
        if (handler.takesMs != 0) {
            Sleep(handler.takesMs);
        }
        return NO_ERROR;
    }
};

}  // namespace

TEST(EventBurst, HandsEveryEventToTheHandler) {
    Handler handler;
    const EventBurst burst{{DBT_DEVICEARRIVAL, kUsbDeviceClass, L"a link"}, 50, 10'000};
    const BurstResult told = burst.Deliver(&Handler::Handle, &handler);
    ASSERT_EQ(handler.seen.size(), 50U);
    EXPECT_EQ(handler.seen.back().control, DWORD{SERVICE_CONTROL_DEVICEEVENT});
    EXPECT_EQ(handler.seen.back().type, DWORD{DBT_DEVICEARRIVAL});
    EXPECT_EQ(handler.seen.back().link, L"a link");
    EXPECT_EQ(told.events, 50);
}

// The first is due at once, so n events take n - 1 periods at least.
TEST(EventBurst, IsNoFasterThanAsked) {
    Handler handler;
    const BurstResult told =
        EventBurst{{DBT_DEVICEARRIVAL, kUsbDeviceClass, L""}, 11, 100}.Deliver(&Handler::Handle, &handler);
    EXPECT_GE(told.seconds, 0.1);
}

TEST(EventBurst, TellsTheTimeInAHandlerThatFallsBehind) {
    Handler handler;
    handler.takesMs = 5;
    const BurstResult told =
        EventBurst{{DBT_DEVICEARRIVAL, kUsbDeviceClass, L""}, 10, 10'000}.Deliver(&Handler::Handle, &handler);
    EXPECT_GE(told.handlingUs, 5000);
    EXPECT_GE(told.longestUs, told.handlingUs);
    EXPECT_GE(told.seconds, 0.05);
}
