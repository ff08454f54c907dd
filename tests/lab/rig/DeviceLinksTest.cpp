#include <gtest/gtest.h>

#include "lab/rig/DeviceLinks.h"

using lab::rig::Announced;
using lab::rig::DeviceLinks;
using lab::rig::LinkStyle;

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
