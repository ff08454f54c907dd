#include <gtest/gtest.h>

#include "lab/rig/bus/DeviceLinks.h"

using lab::rig::Announced;
using lab::rig::DeviceLinks;
using lab::rig::LinkStyle;
using lab::rig::SameLink;

TEST(DeviceLinks, AreWrittenAsWindowsWritesThem) {
    const DeviceLinks links(0);
    EXPECT_EQ(links.RunningUsb(),
              LR"(\\?\usb#vid_2f1a&pid_7e00#kv4000001#{a5dcbf10-6530-11d2-901f-00c04fb951ed})");
    EXPECT_EQ(
        links.SensorCamera(),
        LR"(\\?\usb#vid_2f1a&pid_7e00&mi_00#6&2b7e0001&0&0000#{24e552d7-6523-47f7-a647-d3465bf1f5ca}\global)");
    EXPECT_EQ(
        links.VideoCamera(),
        LR"(\\?\usb#vid_2f1a&pid_7e00&mi_00#6&2b7e0001&0&0000#{e5323777-f976-4f5b-9b55-b94699c46e44}\global)");
    EXPECT_EQ(
        links.Capture(),
        LR"(\\?\usb#vid_2f1a&pid_7e00&mi_00#6&2b7e0001&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\global)");
    EXPECT_EQ(links.DfuUsb(),
              LR"(\\?\USB#VID_2F1A&PID_7E01#KV4000001#{a5dcbf10-6530-11d2-901f-00c04fb951ed})");
    EXPECT_NE(DeviceLinks(1).DfuUsb(), links.DfuUsb());
}

TEST(DeviceLinks, AreComparedWithoutRegardToCase) {
    EXPECT_TRUE(SameLink(L"\\\\?\\USB#A", L"\\\\?\\usb#a"));
    EXPECT_FALSE(SameLink(L"\\\\?\\usb#a", L"\\\\?\\usb#ab"));
}

TEST(DeviceLinks, ArePaddedWithinTheInstancesName) {
    const DeviceLinks plain(3);
    const DeviceLinks padded(3, {.length = 200});
    for (const auto link : {&DeviceLinks::RunningUsb, &DeviceLinks::SensorCamera, &DeviceLinks::VideoCamera,
                            &DeviceLinks::Capture, &DeviceLinks::DfuUsb}) {
        const std::wstring text = (padded.*link)();
        EXPECT_EQ(text.size(), 200U);
        const std::wstring shorter = (plain.*link)();
        EXPECT_TRUE(text.starts_with(shorter.substr(0, 26)));
        EXPECT_TRUE(text.ends_with(shorter.substr(shorter.find(L"#{"))));
    }
}

TEST(DeviceLinks, AreNotShortened) {
    EXPECT_EQ(DeviceLinks(0, {.length = 5}).DfuUsb(), DeviceLinks(0).DfuUsb());
}

TEST(DeviceLinks, AreAnnouncedInTheCaseAskedFor) {
    EXPECT_EQ(Announced(L"aBc#1", LinkStyle::Case::AsWindows), L"aBc#1");
    EXPECT_EQ(Announced(L"aBc#1", LinkStyle::Case::Lower), L"abc#1");
    EXPECT_EQ(Announced(L"aBc#1", LinkStyle::Case::Upper), L"ABC#1");
    EXPECT_EQ(Announced(L"abcd", LinkStyle::Case::Mixed), L"aBcD");
}
