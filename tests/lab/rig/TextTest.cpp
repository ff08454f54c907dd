#include <gtest/gtest.h>

#include "lab/rig/DeviceLinks.h"
#include "lab/rig/GuidText.h"
#include "lab/rig/HexText.h"
#include "lab/rig/InterfaceClasses.h"

using namespace lab::rig;

TEST(HexText, WritesLowerCaseWithAndWithoutBlanks) {
    const std::vector<std::uint8_t> bytes{0x21, 0xAB, 0x00};
    EXPECT_EQ(HexText(bytes), "21ab00");
    EXPECT_EQ(SpacedHexText(bytes), "21 ab 00");
    EXPECT_EQ(HexText({}), "");
}

TEST(HexText, ReadsBothForms) {
    const std::vector<std::uint8_t> bytes{0x21, 0xAB, 0x00};
    EXPECT_EQ(BytesFromHex("21ab00"), bytes);
    EXPECT_EQ(BytesFromHex("21 AB 00"), bytes);
    EXPECT_EQ(BytesFromHex(""), std::vector<std::uint8_t>());
    EXPECT_FALSE(BytesFromHex("21a").has_value());
    EXPECT_FALSE(BytesFromHex("-1").has_value());
    EXPECT_FALSE(BytesFromHex("0x").has_value());
}

TEST(GuidText, ReadsWhatItWrites) {
    EXPECT_EQ(GuidText(kUsbDeviceClass), "{A5DCBF10-6530-11D2-901F-00C04FB951ED}");
    const auto guid = GuidFromText("{a5dcbf10-6530-11d2-901f-00c04fb951ed}");
    ASSERT_TRUE(guid.has_value());
    EXPECT_TRUE(*guid == kUsbDeviceClass);
    EXPECT_FALSE(GuidFromText("A5DCBF10-6530-11D2-901F-00C04FB951ED").has_value());
    EXPECT_FALSE(GuidFromText("").has_value());
}

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
