#include "lab/guest/Uevent.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <string_view>

using lab::guest::ParseUevent;
using namespace std::string_view_literals;

TEST(Uevent, ReadsItsKeys) {
    const auto uevent =
        ParseUevent("add@/devices/usb1/1-1\0ACTION=add\0DEVNAME=bus/usb/001/002\0OF=a=b\0EMPTY=\0"sv);
    ASSERT_TRUE(uevent.has_value());
    EXPECT_EQ(uevent->Field("ACTION"), "add");
    EXPECT_EQ(uevent->Field("DEVNAME"), "bus/usb/001/002");
    EXPECT_EQ(uevent->Field("OF"), "a=b");
    EXPECT_EQ(uevent->Field("EMPTY"), "");
    EXPECT_EQ(uevent->Field("MISSING"), "");
    EXPECT_EQ(uevent->fields.size(), 4U);
}

TEST(Uevent, ReadsOneWhoseLastZeroIsMissing) {
    const auto uevent = ParseUevent("add@/x\0ACTION=add"sv);
    ASSERT_TRUE(uevent.has_value());
    EXPECT_EQ(uevent->Field("ACTION"), "add");
}

TEST(Uevent, IsNothingElse) {
    EXPECT_FALSE(ParseUevent("").has_value());
    EXPECT_FALSE(ParseUevent("libudev\0\xfe\xed\xca\xfe"sv).has_value());
    EXPECT_FALSE(ParseUevent("add@/x\0no key"sv).has_value());
    EXPECT_FALSE(ParseUevent("add@/x\0\0ACTION=add"sv).has_value());
}
