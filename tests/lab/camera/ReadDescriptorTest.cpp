#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

// The descriptors of DFU mode as a host reads them, and the faults that strike there.

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using What = Fault::What;

constexpr std::uint8_t kDevice = 1;
constexpr std::uint8_t kConfiguration = 2;

CameraDriver Struck(What what, std::uint32_t value = 0) {
    return InDfuMode({.faults = {{.where = Fault::Where::GetDescriptor, .what = what, .value = value}}});
}

TransferResult Read(CameraDriver& driver, std::uint8_t type, Bytes& buffer, std::uint8_t index = 0) {
    return driver.camera.ReadDescriptor(type, index, buffer, driver.nowMs);
}

TEST(ReadDescriptor, GivesAsMuchAsTheBufferTakes) {
    CameraDriver driver = InDfuMode();
    Bytes whole(64);
    TransferResult result = Read(driver, kDevice, whole);
    EXPECT_EQ(result.end, TransferEnd::Ok);
    EXPECT_EQ(result.transferred, driver.camera.DeviceDescriptor().size());
    Bytes header(9);
    result = Read(driver, kConfiguration, header);
    EXPECT_EQ(result.transferred, 9u);
    const Bytes configuration = driver.camera.ConfigurationDescriptor();
    EXPECT_TRUE(std::equal(header.begin(), header.end(), configuration.begin()));
}

TEST(ReadDescriptor, StallsForWhatTheCameraDoesNotHave) {
    CameraDriver driver = InDfuMode();
    Bytes buffer(64);
    EXPECT_EQ(Read(driver, 3, buffer).end, TransferEnd::Stall);
    EXPECT_EQ(Read(driver, kConfiguration, buffer, 1).end, TransferEnd::Stall);
    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
}

TEST(ReadDescriptor, BelongsToDfuMode) {
    CameraDriver driver;
    Bytes buffer(64);
    EXPECT_EQ(Read(driver, kDevice, buffer).end, TransferEnd::Disconnected);
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(Read(driver, kDevice, buffer).end, TransferEnd::Stall);
}

TEST(ReadDescriptor, AStallLeavesTheDfuStateAlone) {
    CameraDriver driver = Struck(What::Stall);
    Bytes buffer(64);
    EXPECT_EQ(Read(driver, kDevice, buffer).end, TransferEnd::Stall);
    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
    EXPECT_EQ(Read(driver, kDevice, buffer).end, TransferEnd::Ok);
}

TEST(ReadDescriptor, MayGoUnanswered) {
    CameraDriver driver = Struck(What::Timeout);
    Bytes buffer(64);
    EXPECT_EQ(Read(driver, kDevice, buffer).end, TransferEnd::Timeout);
}

TEST(ReadDescriptor, MayComeShort) {
    CameraDriver driver = Struck(What::ShortReply, 5);
    Bytes buffer(64);
    EXPECT_EQ(Read(driver, kConfiguration, buffer).transferred, 5u);
    EXPECT_EQ(Read(driver, kConfiguration, buffer).transferred, 27u);
}

TEST(ReadDescriptor, MayBeTheLastThatIsSeenOfTheCamera) {
    CameraDriver driver = Struck(What::Unplug);
    Bytes buffer(64);
    EXPECT_EQ(Read(driver, kDevice, buffer).end, TransferEnd::Disconnected);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
}

}  // namespace
}  // namespace lab::test
