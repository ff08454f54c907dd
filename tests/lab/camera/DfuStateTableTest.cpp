#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

// The state table of the USB DFU 1.1 standard against the camera that keeps to it: seven requests in eleven
// states, each cell a test of its own; then the cells that hang on a condition, the time-outs, and the reset.

namespace lab::test {
namespace {

using enum DfuState;

struct Request {
    const char* name;
    DfuRequest number;
    std::size_t length;
};

constexpr std::array<Request, 7> kRequests{{{"Detach", DfuRequest::Detach, 0},
                                            {"Dnload", DfuRequest::Dnload, 64},
                                            {"Upload", DfuRequest::Upload, 64},
                                            {"GetStatus", DfuRequest::GetStatus, 6},
                                            {"ClrStatus", DfuRequest::ClrStatus, 0},
                                            {"GetState", DfuRequest::GetState, 1},
                                            {"Abort", DfuRequest::Abort, 0}}};

// Where a request leads, and whether the device stalls the control pipe on the way.
struct Next {
    DfuState state;
    bool stalls;
};

constexpr Next To(DfuState state) {
    return {state, false};
}
constexpr Next StallTo(DfuState state) {
    return {state, true};
}

struct Row {
    DfuState state;
    std::array<Next, 7> next;
};

// A block is being written, or the image manifested, at the time of the request; UPLOAD gets a full frame.
constexpr Next kError = StallTo(Error);
constexpr Next kApp = StallTo(AppIdle);
// clang-format off
constexpr std::array<Row, 11> kTable{{
    // state             DETACH          DNLOAD          UPLOAD          GETSTATUS         CLRSTATUS    GETSTATE          ABORT
    {AppIdle,           {To(AppDetach), kApp,           kApp,           To(AppIdle),      kApp,        To(AppIdle),      kApp}},
    {AppDetach,         {kApp,          kApp,           kApp,           To(AppDetach),    kApp,        To(AppDetach),    kApp}},
    {DfuIdle,           {kError,        To(DnloadSync), To(UploadIdle), To(DfuIdle),      kError,      To(DfuIdle),      To(DfuIdle)}},
    {DnloadSync,        {kError,        kError,         kError,         To(DnBusy),       kError,      To(DnloadSync),   To(DfuIdle)}},
    {DnBusy,            {kError,        kError,         kError,         kError,           kError,      kError,           kError}},
    {DnloadIdle,        {kError,        To(DnloadSync), kError,         To(DnloadIdle),   kError,      To(DnloadIdle),   To(DfuIdle)}},
    {ManifestSync,      {kError,        kError,         kError,         To(Manifest),     kError,      To(ManifestSync), To(DfuIdle)}},
    {Manifest,          {kError,        kError,         kError,         kError,           kError,      kError,           kError}},
    {ManifestWaitReset, {kError,        kError,         kError,         kError,           kError,      kError,           kError}},
    {UploadIdle,        {kError,        kError,         To(UploadIdle), To(UploadIdle),   kError,      To(UploadIdle),   To(DfuIdle)}},
    {Error,             {kError,        kError,         kError,         To(Error),        To(DfuIdle), To(Error),        kError}},
}};
// clang-format on

struct Cell {
    DfuState state;
    Request request;
    Next next;
};

std::vector<Cell> Cells() {
    std::vector<Cell> cells;
    for (const Row& row : kTable) {
        for (std::size_t column = 0; column < kRequests.size(); ++column) {
            cells.push_back({row.state, kRequests[column], row.next[column]});
        }
    }
    return cells;
}

constexpr std::uint16_t kDetachMs = 1000;

// A camera that keeps to the standard, brought to a state.
CameraDriver InState(DfuState state, Personality personality = Personality::Strict) {
    CameraDriver driver(CameraSettings{.personality = personality, .blockMs = 100});
    if (state == AppIdle || state == AppDetach) {
        driver.camera.Plug(driver.nowMs);
        if (state == AppDetach) {
            driver.Request(DfuRequest::Detach, kDetachMs);
        }
    } else {
        driver.Reach(state);
    }
    EXPECT_EQ(driver.camera.State(), state);
    return driver;
}

class DfuStateTable : public testing::TestWithParam<Cell> {};

TEST_P(DfuStateTable, AnswersAsTheStandardSays) {
    const Cell& cell = GetParam();
    CameraDriver driver = InState(cell.state);
    std::vector<std::uint8_t> data(cell.request.length);

    const TransferResult result = driver.Request(cell.request.number, 1, data);

    EXPECT_EQ(result.end, cell.next.stalls ? TransferEnd::Stall : TransferEnd::Ok);
    EXPECT_EQ(result.transferred, cell.next.stalls ? 0 : cell.request.length);
    EXPECT_EQ(driver.camera.State(), cell.next.state);
    if (cell.next.stalls) {
        return;
    }
    if (cell.request.number == DfuRequest::GetStatus) {
        EXPECT_EQ(DfuState{data[4]}, cell.next.state);
        EXPECT_EQ(DfuStatus{data[0]}, cell.state == Error ? DfuStatus::ErrFirmware : DfuStatus::Ok);
    }
    if (cell.request.number == DfuRequest::GetState) {
        EXPECT_EQ(DfuState{data[0]}, cell.next.state);
    }
}

INSTANTIATE_TEST_SUITE_P(Standard, DfuStateTable, testing::ValuesIn(Cells()),
                         [](const testing::TestParamInfo<Cell>& instance) {
                             return NameOf(instance.param.state) + "_" + instance.param.request.name;
                         });

// Cells with a condition.

TEST(DfuStateTableCondition, DfuIdle_EmptyDnloadIsAnError) {
    CameraDriver driver = InState(DfuIdle);
    EXPECT_EQ(driver.Dnload(0, {}).end, TransferEnd::Stall);
    EXPECT_EQ(driver.camera.State(), Error);
}

TEST(DfuStateTableCondition, DnloadSync_GetStatusOfAWrittenBlockLeadsToDnloadIdle) {
    CameraDriver driver = InState(DnloadSync);
    driver.Pass(100);
    EXPECT_EQ(driver.camera.State(), DnloadSync);
    EXPECT_EQ(driver.GetStatus().state, DnloadIdle);
    EXPECT_EQ(driver.camera.State(), DnloadIdle);
}

TEST(DfuStateTableCondition, DnloadIdle_EmptyDnloadLeadsToManifestSync) {
    CameraDriver driver = InState(DnloadIdle);
    EXPECT_EQ(driver.Dnload(1, {}).end, TransferEnd::Ok);
    EXPECT_EQ(driver.camera.State(), ManifestSync);
}

TEST(DfuStateTableCondition, ManifestSync_GetStatusAfterATolerantManifestationLeadsToDfuIdle) {
    CameraDriver driver = InState(Manifest, Personality::Synchronous);
    driver.Pass(driver.camera.Settings().manifestMs);
    EXPECT_EQ(driver.camera.State(), ManifestSync);
    EXPECT_EQ(driver.GetStatus().state, DfuIdle);
    EXPECT_EQ(driver.camera.State(), DfuIdle);
}

TEST(DfuStateTableCondition, UploadIdle_ShortFrameLeadsToDfuIdle) {
    CameraDriver driver = InState(DfuIdle);
    for (int frame = 0; frame < 4; ++frame) {
        EXPECT_EQ(driver.Upload(1000).size(), 1000U);
        EXPECT_EQ(driver.camera.State(), UploadIdle);
    }
    EXPECT_EQ(driver.Upload(1000).size(), 96U);
    EXPECT_EQ(driver.camera.State(), DfuIdle);
}

TEST(DfuStateTableCondition, Error_ClrStatusClearsTheStatus) {
    CameraDriver driver = InState(Error);
    EXPECT_EQ(driver.GetStatus().status, DfuStatus::ErrFirmware);
    driver.Request(DfuRequest::ClrStatus);
    EXPECT_EQ(driver.GetStatus().status, DfuStatus::Ok);
}

// Time-outs.

TEST(DfuStateTableTime, AppDetachEndsInAppIdleWhenNoResetComes) {
    CameraDriver driver = InState(AppDetach);
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + kDetachMs);
    driver.Pass(kDetachMs - 1);
    EXPECT_EQ(driver.camera.State(), AppDetach);
    driver.Pass(1);
    EXPECT_EQ(driver.camera.State(), AppIdle);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
}

TEST(DfuStateTableTime, DnBusyEndsInDnloadSync) {
    CameraDriver driver = InState(DnBusy);
    driver.Pass(100);
    EXPECT_EQ(driver.camera.State(), DnloadSync);
}

TEST(DfuStateTableTime, ManifestEndsInManifestWaitReset) {
    CameraDriver driver = InState(Manifest);
    driver.Pass(driver.camera.Settings().manifestMs);
    EXPECT_EQ(driver.camera.State(), ManifestWaitReset);
}

// The host's reset, in each state.

class DfuStateTableReset : public testing::TestWithParam<DfuState> {};

TEST_P(DfuStateTableReset, LeadsWhereTheStandardSays) {
    const DfuState state = GetParam();
    CameraDriver driver = InState(state);
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
    CameraDriver driver(Personality::Strict);
    driver.camera.Reset(driver.nowMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
}

// The KV400 itself has no DFU interface while it runs its firmware.
TEST(DfuRuntimeInterface, IsNotInTheKv400) {
    for (const Request& request : kRequests) {
        CameraDriver driver(Personality::Kv400);
        driver.camera.Plug(driver.nowMs);
        std::vector<std::uint8_t> data(request.length);
        EXPECT_EQ(driver.Request(request.number, 1, data).end, TransferEnd::Stall) << request.name;
        EXPECT_EQ(driver.camera.State(), AppIdle) << request.name;
    }
}

TEST(DfuRuntimeInterface, AnswersNoOtherInterface) {
    CameraDriver driver = InState(AppIdle);
    std::array<std::uint8_t, 1> data{};
    const SetupPacket setup{.requestType = 0xA1, .request = 5, .index = 1, .length = 1};
    EXPECT_EQ(driver.camera.ControlTransfer(setup, data, driver.nowMs).end, TransferEnd::Stall);
}

TEST(DfuRuntimeInterface, ForgetsADetachWhenTheCameraIsUnplugged) {
    CameraDriver driver = InState(AppDetach);
    driver.camera.Unplug();
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.State(), AppIdle);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

// Whichever comes first: the end of the detach time, or leaving the bus after the firmware command.
TEST(DfuRuntimeInterface, DetachDoesNotKeepTheFirmwareCommandFromWorking) {
    CameraDriver driver = InState(AppDetach);
    driver.Command(0x1E, {1, 0, 0, 0});
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + driver.camera.Settings().detachMs);
    driver.Pass(driver.camera.Settings().detachMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    driver.Pass(driver.camera.Settings().enumerateMs);
    EXPECT_EQ(driver.camera.State(), DfuIdle);
}

}  // namespace
}  // namespace lab::test
