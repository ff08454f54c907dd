#include "lab/guest/UsbTree.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

#include "tests/lab/guest/TemporaryPlaces.h"

using lab::guest::UsbDevice;
using lab::guest::UsbTree;

namespace {

class UsbTreeTest : public testing::Test {
  protected:
    // The number of the error with which a device is not found; 0 when it is.
    int ErrorOf(const std::string& path) const {
        try {
            (void)tree_.Find(path);
        } catch (const std::system_error& error) {
            return error.code().value();
        }
        return 0;
    }

    TemporaryPlaces places_;
    UsbTree tree_{places_.Places()};
};

}  // namespace

TEST_F(UsbTreeTest, IsEmptyWhereThereIsNoBus) {
    EXPECT_TRUE(tree_.Devices().empty());
}

TEST_F(UsbTreeTest, ReadsADevice) {
    places_.AddDevice("1-2");
    const UsbDevice device = tree_.Find("1-2");
    EXPECT_EQ(device.path, "1-2");
    EXPECT_EQ(device.bus, 1U);
    EXPECT_EQ(device.number, 2U);
    EXPECT_EQ(device.vendor, "2f1a");
    EXPECT_EQ(device.product, "7e00");
    EXPECT_EQ(device.release, "0100");
    EXPECT_EQ(device.usb, "2.00");
    EXPECT_EQ(device.speed, "480");
    EXPECT_EQ(device.configuration, "1");
    EXPECT_EQ(device.manufacturerText, "");
    EXPECT_EQ(device.productText, "Camera");
    EXPECT_EQ(device.videoNode, "");
    ASSERT_EQ(device.interfaces.size(), 1U);
    EXPECT_EQ(device.interfaces[0].number, "00");
    EXPECT_EQ(device.interfaces[0].setting, "1");
    EXPECT_EQ(device.interfaces[0].deviceClass, "ff");
    EXPECT_EQ(device.interfaces[0].subClass, "01");
    EXPECT_EQ(device.interfaces[0].protocol, "02");
    EXPECT_EQ(device.interfaces[0].driver, "usbtest");
}

TEST_F(UsbTreeTest, ListsDevicesByTheirPathsAndInterfacesNot) {
    places_.AddDevice("1-2");
    places_.AddDevice("1-1");
    places_.Write("sys/bus/usb/devices/1-1:1.0/idVendor", "2f1a\n");
    const auto devices = tree_.Devices();
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0].path, "1-1");
    EXPECT_EQ(devices[1].path, "1-2");
}

TEST_F(UsbTreeTest, LeavesADeviceOutThatIsLeaving) {
    places_.AddDevice("1-1");
    places_.Remove("sys/bus/usb/devices/1-1/idVendor");
    EXPECT_TRUE(tree_.Devices().empty());
    EXPECT_EQ(ErrorOf("1-1"), ENODEV);
}

TEST_F(UsbTreeTest, FindsTheFirstVideoNodeOfACamera) {
    places_.AddDevice("1-2");
    for (const auto* const node : {"video1", "video2"}) {
        places_.Link(std::string("sys/class/video4linux/") + node + "/device", "../../../1-2:1.0");
    }
    places_.Write("sys/class/video4linux/video1/index", "1\n");
    places_.Write("sys/class/video4linux/video2/index", "0\n");
    places_.Link("sys/class/video4linux/video0/device", "../../../1-21:1.0");
    places_.Write("sys/class/video4linux/video0/index", "0\n");
    EXPECT_EQ(tree_.Find("1-2").videoNode, "video2");
}

TEST_F(UsbTreeTest, ReadsDescriptors) {
    places_.AddDevice("1-2");
    EXPECT_EQ(tree_.Descriptors("1-2"), (std::vector<std::uint8_t>{0x12, 0x01, 0x00, 0x02}));
    EXPECT_THROW((void)tree_.Descriptors("1-3"), std::system_error);
}

TEST_F(UsbTreeTest, NamesTheUsbfsNode) {
    UsbDevice device;
    device.bus = 1;
    device.number = 12;
    EXPECT_EQ(tree_.NodeOf(device), places_.Places().dev / "bus/usb/001/012");
}

TEST_F(UsbTreeTest, DoesNotLeaveItsFolder) {
    places_.Write("sys/bus/usb/secret/idVendor", "2f1a\n");
    EXPECT_EQ(ErrorOf("../secret"), EINVAL);
    EXPECT_EQ(ErrorOf(""), EINVAL);
    EXPECT_EQ(ErrorOf("1-1"), ENODEV);
    EXPECT_THROW((void)tree_.Descriptors("../secret"), std::system_error);
}
