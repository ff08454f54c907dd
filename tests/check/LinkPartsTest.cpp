#include "check/LinkParts.h"

#include <gtest/gtest.h>

using namespace check;

TEST(LinkParts, TheLinksOfOneDeviceHaveTheDeviceInCommon) {
    EXPECT_EQ(
        DeviceOfLink(
            R"(\\?\USB#VID_2F1A&PID_7E00&MI_00#6&1&0&0000#{24e552d7-6523-47f7-a647-d3465bf1f5ca}\global)"),
        R"(\\?\usb#vid_2f1a&pid_7e00&mi_00#6&1&0&0000)");
    EXPECT_EQ(DeviceOfLink("no link"), "no link");
}

TEST(LinkParts, TheClassIsNamed) {
    EXPECT_EQ(CategoryOfLink("x#{24E552D7-6523-47F7-A647-D3465BF1F5CA}\\global"), "sensor camera");
    EXPECT_EQ(CategoryOfLink("x#{e5323777-f976-4f5b-9b55-b94699c46e44}\\global"), "video camera");
    EXPECT_EQ(CategoryOfLink("x#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\\global"), "capture");
    EXPECT_EQ(CategoryOfLink("x"), "other");
}

// The service looks for the class in lower case.
TEST(LinkParts, CaptureIsWhatTheServicePassesOver) {
    EXPECT_EQ(CategoryOfLink("x#{65E8773D-8F56-11D0-A3B9-00A0C9223196}\\global"), "other");
}
