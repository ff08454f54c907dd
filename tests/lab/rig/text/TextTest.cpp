#include <gtest/gtest.h>

#include "lab/rig/bus/InterfaceClasses.h"
#include "lab/rig/text/GuidText.h"
#include "lab/rig/text/HexText.h"

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
