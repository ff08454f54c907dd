#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

// What the state table of the USB DFU 1.1 standard says beside its requests, against the camera that keeps to
// it: the cells that hang on a condition, the time-outs, and the reset.

namespace lab::test {
namespace {

using enum DfuState;

CameraDriver At(DfuState state, Personality personality = Personality::Strict) {
    return InState(state, {.personality = personality, .blockMs = 100});
}

// Cells with a condition.

TEST(DfuStateTableCondition, DnloadSync_GetStatusOfAWrittenBlockLeadsToDnloadIdle) {
    CameraDriver driver = At(DnloadSync);
    driver.Pass(100);
    EXPECT_EQ(driver.camera.State(), DnloadSync);
    EXPECT_EQ(driver.GetStatus().state, DnloadIdle);
    EXPECT_EQ(driver.camera.State(), DnloadIdle);
}

TEST(DfuStateTableCondition, ManifestSync_GetStatusAfterATolerantManifestationLeadsToDfuIdle) {
    CameraDriver driver = At(Manifest, Personality::Synchronous);
    driver.Pass(driver.camera.Settings().manifestMs);
    EXPECT_EQ(driver.camera.State(), ManifestSync);
    EXPECT_EQ(driver.GetStatus().state, DfuIdle);
    EXPECT_EQ(driver.camera.State(), DfuIdle);
}

TEST(DfuStateTableCondition, UploadIdle_ShortFrameLeadsToDfuIdle) {
    CameraDriver driver = At(DfuIdle);
    for (int frame = 0; frame < 4; ++frame) {
        EXPECT_EQ(driver.Upload(1000).size(), 1000U);
        EXPECT_EQ(driver.camera.State(), UploadIdle);
    }
    EXPECT_EQ(driver.Upload(1000).size(), 96U);
    EXPECT_EQ(driver.camera.State(), DfuIdle);
}

TEST(DfuStateTableCondition, Error_ClrStatusClearsTheStatus) {
    CameraDriver driver = At(Error);
    EXPECT_EQ(driver.GetStatus().status, DfuStatus::ErrFirmware);
    driver.Request(DfuRequest::ClrStatus);
    EXPECT_EQ(driver.GetStatus().status, DfuStatus::Ok);
}

// Time-outs.

TEST(DfuStateTableTime, AppDetachEndsInAppIdleWhenNoResetComes) {
    CameraDriver driver = At(AppDetach);
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + CameraDriver::kDetachMs);
    driver.Pass(CameraDriver::kDetachMs - 1);
    EXPECT_EQ(driver.camera.State(), AppDetach);
    driver.Pass(1);
    EXPECT_EQ(driver.camera.State(), AppIdle);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
}

TEST(DfuStateTableTime, DnBusyEndsInDnloadSync) {
    CameraDriver driver = At(DnBusy);
    driver.Pass(100);
    EXPECT_EQ(driver.camera.State(), DnloadSync);
}

TEST(DfuStateTableTime, ManifestEndsInManifestWaitReset) {
    CameraDriver driver = At(Manifest);
    driver.Pass(driver.camera.Settings().manifestMs);
    EXPECT_EQ(driver.camera.State(), ManifestWaitReset);
}

// The host's reset, in each state.

class DfuStateTableReset : public testing::TestWithParam<DfuState> {};

TEST_P(DfuStateTableReset, LeadsWhereTheStandardSays) {
    const DfuState state = GetParam();
    CameraDriver driver = At(state);
    const bool isFirmwareWhole = state != Error && state != DnloadSync && state != DnBusy &&
                                 state != DnloadIdle && state != ManifestSync && state != Manifest;

    driver.camera.Reset(driver.nowMs);

    const DfuState whole = state == AppDetach ? DfuIdle : AppIdle;
    EXPECT_EQ(driver.camera.State(), isFirmwareWhole ? whole : Error);
    EXPECT_EQ(driver.camera.Mode(), isFirmwareWhole && state != AppDetach ? BusMode::Running : BusMode::Dfu);
}

INSTANTIATE_TEST_SUITE_P(Standard, DfuStateTableReset,
                         testing::Values(AppIdle, AppDetach, DfuIdle, DnloadSync, DnBusy, DnloadIdle,
                                         ManifestSync, Manifest, ManifestWaitReset, UploadIdle, Error),
                         [](const testing::TestParamInfo<DfuState>& instance) {
                             return NameOf(instance.param);
                         });

TEST(DfuStateTableTime, ResetDoesNothingToACameraThatIsNotOnTheBus) {
    CameraDriver driver({.personality = Personality::Strict});
    driver.camera.Reset(driver.nowMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
}

TEST(DfuRuntimeInterface, AnswersNoOtherInterface) {
    CameraDriver driver = At(AppIdle);
    std::array<std::uint8_t, 1> data{};
    const SetupPacket setup{.requestType = 0xA1, .request = 5, .index = 1, .length = 1};
    EXPECT_EQ(driver.camera.ControlTransfer(setup, data, driver.nowMs).end, TransferEnd::Stall);
}

TEST(DfuRuntimeInterface, ForgetsADetachWhenTheCameraIsUnplugged) {
    CameraDriver driver = At(AppDetach);
    driver.camera.Unplug();
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.State(), AppIdle);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

// Whichever comes first: the end of the detach time, or leaving the bus after the firmware command.
TEST(DfuRuntimeInterface, DetachDoesNotKeepTheFirmwareCommandFromWorking) {
    CameraDriver driver = At(AppDetach);
    driver.Command(0x1E, {1, 0, 0, 0});
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + driver.camera.Settings().detachMs);
    driver.Pass(driver.camera.Settings().detachMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    driver.Pass(driver.camera.Settings().enumerateMs);
    EXPECT_EQ(driver.camera.State(), DfuIdle);
}

}  // namespace
}  // namespace lab::test
