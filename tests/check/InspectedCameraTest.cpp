#include "check/InspectedCamera.h"

#include "camera/KV400UpdatableDevice.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeMediaFoundation.h"

#include <gtest/gtest.h>

namespace {

using check::InspectedCamera;
using test_support::FakeCamera;
using test_support::FakeClock;
using test_support::FakeFirmware;
using test_support::FakeMediaFoundation;

constexpr const wchar_t* kLink =
    L"\\\\?\\usb#vid_2f1a&pid_7e00&mi_00#6&1#{24e552d7-6523-47f7-a647-d3465bf1f5ca}\\global";
constexpr HRESULT kDeviceGone = static_cast<HRESULT>(0x8007048F);

struct Read {
    HRESULT opened = E_FAIL;
    HRESULT found = E_FAIL;
    HRESULT result = E_FAIL;
    std::wstring version;
};

Read Inspect(FakeCamera& camera) {
    Read read;
    InspectedCamera inspected;
    read.opened = inspected.Open(camera.ListedActivation());
    read.found = inspected.FindExtensionUnit();
    if (SUCCEEDED(read.found)) {
        read.result = inspected.ReadVersion(read.version);
    }
    return read;
}

bool Same(const FakeFirmware::Command& left, const FakeFirmware::Command& right) {
    return left.length == right.length && left.magic == right.magic && left.opcode == right.opcode &&
           left.parameters == right.parameters;
}

class InspectedCameraTest : public ::testing::Test {
  protected:
    FakeMediaFoundation mediaFoundation_;
    FakeClock clock_;
};

}  // namespace

TEST_F(InspectedCameraTest, ReadsTheVersion) {
    FakeCamera& camera = mediaFoundation_.AddCamera(kLink);
    camera.Firmware().SetVersion(5, 10, 2, 7);
    const Read read = Inspect(camera);
    EXPECT_EQ(read.result, S_OK);
    EXPECT_EQ(read.version, L"5.10.2.7");
    EXPECT_EQ(camera.References(), 0);
    EXPECT_EQ(camera.Shutdowns(), 1);
}

// The two have no code in common here.
TEST_F(InspectedCameraTest, AsksAsTheServiceDoes) {
    FakeCamera& ofService = mediaFoundation_.AddCamera(kLink);
    ofService.Firmware().FailReads(5, kDeviceGone);
    {
        KV400UpdatableDevice device;
        ASSERT_EQ(device.Open(ofService.ListedActivation()), S_OK);
    }
    const auto sleeps = clock_.Sleeps();
    const auto wanted = ofService.Firmware().Commands();
    mediaFoundation_.UnplugAll();

    FakeCamera& camera = mediaFoundation_.AddCamera(kLink);
    camera.Firmware().FailReads(5, kDeviceGone);
    EXPECT_EQ(Inspect(camera).result, kDeviceGone);
    const auto commands = camera.Firmware().Commands();
    ASSERT_EQ(commands.size(), 5U);
    ASSERT_EQ(wanted.size(), commands.size());
    for (std::size_t index = 0; index < commands.size(); ++index) {
        EXPECT_TRUE(Same(commands[index], wanted[index])) << index;
        EXPECT_EQ(commands[index].opcode, 0x10U);
    }
    const auto all = clock_.Sleeps();
    EXPECT_EQ((std::vector(all.begin() + static_cast<std::ptrdiff_t>(sleeps.size()), all.end())), sleeps);
}

TEST_F(InspectedCameraTest, GoesOnUntilTheFifthAttempt) {
    FakeCamera& camera = mediaFoundation_.AddCamera(kLink);
    camera.Firmware().FailReads(4, kDeviceGone);
    camera.Firmware().SetVersion(1, 2, 3, 4);
    EXPECT_EQ(Inspect(camera).version, L"1.2.3.4");
    EXPECT_EQ(camera.Firmware().Commands().size(), 5U);
}

TEST_F(InspectedCameraTest, FindsNoUnitInAPlainCamera) {
    const Read read = Inspect(mediaFoundation_.AddPlainCamera(kLink));
    EXPECT_EQ(read.opened, S_OK);
    EXPECT_EQ(read.found, E_FAIL);
}
