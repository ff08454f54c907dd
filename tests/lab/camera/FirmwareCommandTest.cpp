#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

// The whole control: what the firmware has to say, and zeros.
Bytes Control(Bytes said) {
    said.resize(VirtualCamera::kFrameSize);
    return said;
}

TEST(FirmwareCommand, ReadsZerosBeforeTheFirstCommand) {
    EXPECT_EQ(Running().Reply(), Control({}));
}

TEST(FirmwareCommand, InformationBlockIs230BytesAfterTheEcho) {
    CameraDriver driver = Running();

    const TransferResult result = driver.Command(0x10);

    EXPECT_EQ(result.end, TransferEnd::Ok);
    EXPECT_EQ(result.transferred, 1024U);
    const Bytes reply = driver.Reply();
    ASSERT_EQ(reply.size(), 1024U);
    EXPECT_EQ(Bytes(reply.begin(), reply.begin() + 4), (Bytes{0x10, 0, 0, 0}));
    EXPECT_EQ(Bytes(reply.begin() + 234, reply.end()), Bytes(790));
}

TEST(FirmwareCommand, InformationBlockHoldsTheVersionOfTheFlashLeastSignificantFirst) {
    CameraDriver driver = Running({.version = {1, 5, 11, 10}});
    driver.Command(0x10);

    const Bytes reply = driver.Reply();

    ASSERT_EQ(reply.size(), 1024U);
    EXPECT_EQ(Bytes(reply.begin() + 16, reply.begin() + 20), (Bytes{10, 11, 5, 1}));
    EXPECT_TRUE(std::equal(reply.begin() + 16, reply.begin() + 20, driver.camera.Flash().begin() + 398));
}

// A reader that looks for the version in the wrong place must not find one.
TEST(FirmwareCommand, InformationBlockHasNoZerosAroundTheVersion) {
    CameraDriver driver = Running();
    driver.Command(0x10);

    const Bytes reply = driver.Reply();

    ASSERT_EQ(reply.size(), 1024U);
    EXPECT_EQ(std::count(reply.begin() + 4, reply.begin() + 16, 0), 0);
    EXPECT_EQ(std::count(reply.begin() + 20, reply.begin() + 234, 0), 0);
}

TEST(FirmwareCommand, UnknownOpcodeIsEchoedWithoutData) {
    CameraDriver driver = Running();
    driver.Command(0x10);

    driver.Command(0xDEADBEEF, {9, 8, 7, 6});

    EXPECT_EQ(driver.Reply(), Control({0xEF, 0xBE, 0xAD, 0xDE}));
}

TEST(FirmwareCommand, ReplyIsCutToTheReadersBuffer) {
    CameraDriver driver = Running();
    driver.Command(0x10);
    Bytes small(6, 0xAA);

    EXPECT_EQ(driver.camera.ReadReply(small, driver.nowMs).transferred, 6U);
    EXPECT_EQ(driver.camera.ReadReply({}, driver.nowMs).transferred, 0U);

    EXPECT_EQ(Bytes(small.begin(), small.begin() + 4), (Bytes{0x10, 0, 0, 0}));
}

TEST(FirmwareCommand, LengthFieldMayCountUpTo1000DataBytes) {
    CameraDriver driver = Running();
    for (const std::uint16_t length : {std::uint16_t{20}, std::uint16_t{21}, std::uint16_t{1020}}) {
        EXPECT_EQ(driver.camera.WriteCommand(MakeFrame(0x55, {}, length), driver.nowMs).end, TransferEnd::Ok)
            << length;
    }
}

TEST(FirmwareCommand, MalformedFramesStallAndLeaveTheLastReply) {
    CameraDriver driver = Running();
    driver.Command(0x55);
    Bytes firstMagic = MakeFrame(0x66);
    firstMagic[2] = 0xCD;
    Bytes secondMagic = MakeFrame(0x66);
    secondMagic[3] = 0xAB;
    Bytes tooShort = MakeFrame(0x66);
    tooShort.pop_back();
    Bytes tooLong = MakeFrame(0x66);
    tooLong.push_back(0);
    const std::vector<Bytes> malformed{firstMagic,
                                       secondMagic,
                                       tooShort,
                                       tooLong,
                                       {},
                                       MakeFrame(0x66, {}, 0),
                                       MakeFrame(0x66, {}, 19),
                                       MakeFrame(0x66, {}, 1021),
                                       MakeFrame(0x66, {}, 0xFFFF)};
    for (std::size_t index = 0; index < malformed.size(); ++index) {
        const TransferResult result = driver.camera.WriteCommand(malformed[index], driver.nowMs);
        EXPECT_EQ(result.end, TransferEnd::Stall) << index;
        EXPECT_EQ(result.transferred, 0U) << index;
    }
    EXPECT_EQ(driver.Reply(), Control({0x55}));
}

TEST(FirmwareCommand, SwitchToDfuModeIsEchoedBeforeTheCameraLeaves) {
    CameraDriver driver = Running();

    EXPECT_EQ(driver.Command(0x1E, {1, 0, 0, 0}).end, TransferEnd::Ok);

    EXPECT_EQ(driver.Reply(), Control({0x1E}));
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(FirmwareCommand, SwitchToDfuModeTakesDetachAndEnumerationTime) {
    CameraDriver driver = Running({.detachMs = 50, .enumerateMs = 200});
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
    driver.Command(0x1E, {1, 0, 0, 0});

    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + 50);
    driver.Pass(49);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    driver.Pass(1);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + 200);
    driver.Pass(199);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    driver.Pass(1);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
}

TEST(FirmwareCommand, SwitchToDfuModeIsDecidedByTheFirstCommand) {
    CameraDriver driver = Running({.detachMs = 50});
    driver.Command(0x1E, {1, 0, 0, 0});
    const std::uint64_t leaves = driver.nowMs + 50;
    driver.Pass(30);

    driver.Command(0x1E, {1, 0, 0, 0});

    EXPECT_EQ(driver.camera.NextDeadline(), leaves);
}

TEST(FirmwareCommand, SwitchToDfuModeWantsItsParameters) {
    const std::vector<std::array<std::uint32_t, 4>> others{
        {0, 0, 0, 0}, {2, 0, 0, 0}, {1, 1, 0, 0}, {1, 0, 1, 0}, {1, 0, 0, 1}};
    for (const auto& parameters : others) {
        CameraDriver driver = Running();
        EXPECT_EQ(driver.Command(0x1E, parameters).end, TransferEnd::Ok);
        EXPECT_EQ(driver.Reply(), Control({0x1E}));
        EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
    }
}

TEST(FirmwareCommand, StallsInDfuMode) {
    CameraDriver driver = InDfuMode();
    Bytes reply(1024);

    EXPECT_EQ(driver.Command(0x10).end, TransferEnd::Stall);
    EXPECT_EQ(driver.camera.ReadReply(reply, driver.nowMs).end, TransferEnd::Stall);
}

TEST(FirmwareCommand, IsDisconnectedOffTheBus) {
    CameraDriver driver;
    Bytes reply(1024);

    EXPECT_EQ(driver.Command(0x10).end, TransferEnd::Disconnected);
    EXPECT_EQ(driver.camera.ReadReply(reply, driver.nowMs).end, TransferEnd::Disconnected);
}

TEST(FirmwareCommand, StallsWithoutAnExtensionUnit) {
    CameraDriver driver = Running({.hasExtensionUnit = false});
    Bytes reply(1024);

    EXPECT_EQ(driver.Command(0x1E, {1, 0, 0, 0}).end, TransferEnd::Stall);
    EXPECT_EQ(driver.camera.ReadReply(reply, driver.nowMs).end, TransferEnd::Stall);

    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
}

TEST(FirmwareCommand, ReplyIsForgottenWhenTheCameraIsPluggedInAgain) {
    CameraDriver driver = Running();
    driver.Command(0x10);

    driver.camera.Unplug();
    driver.camera.Plug(driver.nowMs);

    EXPECT_EQ(driver.Reply(), Control({}));
}

TEST(FirmwareCommand, WrittenLateMeetsTheCameraAsItIsThen) {
    CameraDriver driver = Running();
    driver.Command(0x1E, {1, 0, 0, 0});

    driver.nowMs += driver.camera.Settings().detachMs;

    EXPECT_EQ(driver.Command(0x10).end, TransferEnd::Disconnected);
}

}  // namespace
}  // namespace lab::test
