#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <vector>

// The plug pulled at each stage of an update.

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

CameraSettings Slow(Personality personality) {
    return {.personality = personality, .blockMs = 100};
}

void ExpectItStaysAbsent(CameraDriver& driver) {
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
    driver.Pass(100'000);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    EXPECT_EQ(driver.GetStatus().end, TransferEnd::Disconnected);
}

void PullAndPlug(CameraDriver& driver) {
    driver.camera.Unplug();
    ExpectItStaysAbsent(driver);
    driver.camera.Plug(driver.nowMs);
}

TEST(VirtualCamera, IsAbsentUntilItIsPluggedIn) {
    CameraDriver driver;
    ExpectItStaysAbsent(driver);
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.State(), DfuState::AppIdle);
    EXPECT_EQ(driver.camera.Status(), DfuStatus::Ok);
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
}

class PowerFailure : public testing::TestWithParam<DfuState> {};

TEST_P(PowerFailure, WithADownloadUnderWayLeavesNoFirmwareThatRuns) {
    CameraDriver driver = InState(GetParam(), Slow(Personality::Kv400));

    PullAndPlug(driver);

    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
    const StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.state, DfuState::Error);
    EXPECT_EQ(reply.status, DfuStatus::ErrFirmware);
    Bytes expected = VirtualCamera({}).Flash();
    const Bytes downloaded = MakeImage(64);
    std::copy(downloaded.begin(), downloaded.end(), expected.begin());
    EXPECT_EQ(driver.camera.Flash(), expected);
}

INSTANTIATE_TEST_SUITE_P(Stages, PowerFailure,
                         testing::Values(DfuState::DnloadSync, DfuState::DnBusy, DfuState::DnloadIdle,
                                         DfuState::ManifestSync, DfuState::Manifest),
                         [](const testing::TestParamInfo<DfuState>& instance) {
                             return NameOf(instance.param);
                         });

class HarmlessPowerFailure : public testing::TestWithParam<DfuState> {};

TEST_P(HarmlessPowerFailure, LeavesTheFirmwareRunning) {
    CameraDriver driver = InState(GetParam(), Slow(Personality::Strict));
    const Bytes flash = driver.camera.Flash();

    PullAndPlug(driver);

    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), flash);
}

INSTANTIATE_TEST_SUITE_P(Stages, HarmlessPowerFailure,
                         testing::Values(DfuState::DfuIdle, DfuState::UploadIdle,
                                         DfuState::ManifestWaitReset),
                         [](const testing::TestParamInfo<DfuState>& instance) {
                             return NameOf(instance.param);
                         });

// The next host is told of the wait for a reset before the camera resets itself, as the one before the
// failure was.
TEST(VirtualCamera, PowerFailureTakesWhatTheHostWasTold) {
    CameraSettings settings{.manifestsAtOnce = true};
    settings.traits = TraitsOf(Personality::Kv400);
    settings.traits->takesEmptyImage = true;
    CameraDriver driver = InState(DfuState::ManifestWaitReset, settings);
    driver.camera.Unplug();
    driver.EnterDfuMode();
    EXPECT_EQ(driver.Dnload(0, {}).end, TransferEnd::Ok);
    const StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.end, TransferEnd::Ok);
    EXPECT_EQ(reply.state, DfuState::ManifestWaitReset);
}

TEST(VirtualCamera, PulledInRunningModeComesBackRunning) {
    CameraDriver driver = Running();
    PullAndPlug(driver);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(VirtualCamera, PulledBeforeItLeftForDfuModeForgetsTheSwitch) {
    CameraDriver driver = Running();
    driver.Command(0x1E, {1, 0, 0, 0});
    PullAndPlug(driver);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    driver.Pass(100'000);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(VirtualCamera, PulledOnItsWayToDfuModeForgetsTheSwitch) {
    CameraDriver driver = Running();
    driver.Command(0x1E, {1, 0, 0, 0});
    driver.Pass(driver.camera.Settings().detachMs);
    ASSERT_EQ(driver.camera.Mode(), BusMode::Absent);
    PullAndPlug(driver);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(VirtualCamera, PulledDuringItsSelfResetComesBackWithTheNewImage) {
    CameraDriver driver = InState(DfuState::ManifestWaitReset, Slow(Personality::Kv400));
    driver.Pass(driver.camera.Settings().resetMs);
    ASSERT_EQ(driver.camera.Mode(), BusMode::Absent);
    PullAndPlug(driver);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), MakeImage(64));
}

TEST(VirtualCamera, PulledInTheErrorOfADownloadHasNoFirmwareThatRuns) {
    CameraDriver driver = InState(DfuState::DnloadIdle, Slow(Personality::Kv400));
    driver.Request(DfuRequest::ClrStatus);
    ASSERT_EQ(driver.camera.State(), DfuState::Error);
    PullAndPlug(driver);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
    EXPECT_EQ(driver.camera.Status(), DfuStatus::ErrFirmware);
}

TEST(VirtualCamera, PulledAfterTheDownloadWasAbortedRunsTheOldFirmware) {
    CameraDriver driver = InState(DfuState::DnloadIdle, Slow(Personality::Kv400));
    driver.Request(DfuRequest::Abort);
    PullAndPlug(driver);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), VirtualCamera({}).Flash());
}

TEST(VirtualCamera, StaysWithoutFirmwareUntilADownloadSucceeds) {
    CameraDriver driver = InState(DfuState::DnloadIdle, Slow(Personality::Kv400));
    PullAndPlug(driver);
    driver.Request(DfuRequest::ClrStatus);
    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
    PullAndPlug(driver);
    EXPECT_EQ(driver.camera.Status(), DfuStatus::ErrFirmware);

    driver.Request(DfuRequest::ClrStatus);
    ASSERT_TRUE(driver.Download(MakeImage(2000)));
    ASSERT_TRUE(driver.Await(DfuState::ManifestWaitReset));
    driver.Pass(driver.camera.Settings().resetMs + driver.camera.Settings().enumerateMs);

    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), MakeImage(2000));
}

TEST(VirtualCamera, PartlyWrittenFlashIsAsLongAsTheLongerOfTheTwo) {
    CameraDriver driver = InDfuMode({.transferSize = 5000});
    driver.Dnload(0, MakeImage(5000));
    driver.camera.Unplug();
    EXPECT_EQ(driver.camera.Flash(), MakeImage(5000));
}

TEST(VirtualCamera, PluggingInWhatIsPluggedInDoesNothing) {
    CameraDriver driver = Running();
    driver.Command(0x55);
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.Reply()[0], 0x55);

    driver.Command(0x1E, {1, 0, 0, 0});
    driver.Pass(driver.camera.Settings().detachMs);
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    driver.Pass(driver.camera.Settings().enumerateMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
}

TEST(VirtualCamera, PluggingInMakesWhatIsDueHappen) {
    CameraDriver driver = Running();
    driver.Command(0x1E, {1, 0, 0, 0});
    driver.camera.Plug(driver.nowMs + driver.camera.Settings().detachMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
}

TEST(VirtualCamera, UnpluggingWhatIsUnpluggedDoesNothing) {
    CameraDriver driver;
    driver.camera.Unplug();
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(TwoBanks, KeepTheFirmwareWhenTheDownloadIsCutOff) {
    CameraDriver driver = InState(DfuState::DnloadIdle, {.blockMs = 100, .hasTwoBanks = true});

    PullAndPlug(driver);

    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), VirtualCamera({}).Flash());
    driver.camera.Unplug();
    driver.camera.Plug(driver.nowMs);
    driver.EnterDfuMode();
    EXPECT_TRUE(driver.Download(MakeImage(3000)));
}

}  // namespace
}  // namespace lab::test
