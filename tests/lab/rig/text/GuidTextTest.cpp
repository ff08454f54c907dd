#include <gtest/gtest.h>

#include "lab/rig/bus/InterfaceClasses.h"
#include "lab/rig/text/GuidText.h"

using namespace lab::rig;

TEST(GuidText, ReadsWhatItWrites) {
    EXPECT_EQ(GuidText(kUsbDeviceClass), "{A5DCBF10-6530-11D2-901F-00C04FB951ED}");
    const auto guid = GuidFromText("{a5dcbf10-6530-11d2-901f-00c04fb951ed}");
    ASSERT_TRUE(guid.has_value());
    EXPECT_TRUE(*guid == kUsbDeviceClass);
    EXPECT_FALSE(GuidFromText("A5DCBF10-6530-11D2-901F-00C04FB951ED").has_value());
    EXPECT_FALSE(GuidFromText("").has_value());
}
