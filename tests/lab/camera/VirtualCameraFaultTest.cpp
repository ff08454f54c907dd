#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Where = Fault::Where;
using What = Fault::What;
using Moment = Fault::Moment;

CameraDriver InDfuModeWith(std::vector<Fault> faults) {
    return InDfuMode({.faults = std::move(faults)});
}

CameraDriver RunningWith(std::vector<Fault> faults) {
    return Running({.faults = std::move(faults)});
}

// A DFU request that a device in dfuIDLE (in dfuERROR for CLRSTATUS) accepts.
struct Place {
    const char* name;
    Where where;
    DfuRequest request;
    std::size_t length;
    DfuState in;
};

class FaultPlace : public testing::TestWithParam<Place> {
  protected:
    static CameraDriver Bring(What what, bool setsError = true) {
        return InState(GetParam().in,
                       {.faults = {{.where = GetParam().where, .what = what, .setsError = setsError}}});
    }

    static TransferEnd Ask(CameraDriver& driver) {
        Bytes data(GetParam().length);
        return driver.Request(GetParam().request, 0, data).end;
    }
};

TEST_P(FaultPlace, StallLeadsToTheErrorState) {
    CameraDriver driver = Bring(What::Stall);
    EXPECT_EQ(Ask(driver), TransferEnd::Stall);
    EXPECT_EQ(driver.camera.State(), DfuState::Error);
    EXPECT_EQ(driver.camera.Status(),
              GetParam().in == DfuState::Error ? DfuStatus::ErrFirmware : DfuStatus::ErrStalledPkt);
}

TEST_P(FaultPlace, StallThatSetsNoErrorChangesNothing) {
    CameraDriver driver = Bring(What::Stall, false);
    EXPECT_EQ(Ask(driver), TransferEnd::Stall);
    EXPECT_EQ(driver.camera.State(), GetParam().in);
    EXPECT_EQ(Ask(driver), TransferEnd::Ok);
}

TEST_P(FaultPlace, TimeoutChangesNothing) {
    CameraDriver driver = Bring(What::Timeout);
    EXPECT_EQ(Ask(driver), TransferEnd::Timeout);
    EXPECT_EQ(driver.camera.State(), GetParam().in);
    EXPECT_EQ(Ask(driver), TransferEnd::Ok);
}

TEST_P(FaultPlace, UnplugTakesTheCameraOffTheBusForGood) {
    CameraDriver driver = Bring(What::Unplug);
    EXPECT_EQ(Ask(driver), TransferEnd::Disconnected);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    driver.Pass(100'000);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    driver.camera.Plug(driver.nowMs);
    EXPECT_NE(driver.camera.Mode(), BusMode::Absent);
}

// The state that the request leads to, though the host sees it fail.
TEST_P(FaultPlace, CarriedOutItHasItsEffectAndNoOther) {
    for (const auto& [what, end] :
         {std::pair{What::Stall, TransferEnd::Stall}, std::pair{What::Timeout, TransferEnd::Timeout}}) {
        CameraDriver faultless = InState(GetParam().in, {});
        Ask(faultless);
        CameraDriver driver = InState(
            GetParam().in, {.faults = {{.where = GetParam().where, .what = what, .moment = Moment::After}}});
        EXPECT_EQ(Ask(driver), end);
        EXPECT_EQ(driver.camera.State(), faultless.camera.State());
        EXPECT_EQ(driver.camera.Status(), faultless.camera.Status());
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, FaultPlace,
    testing::Values(Place{"Detach", Where::Detach, DfuRequest::Detach, 0, DfuState::DfuIdle},
                    Place{"Dnload", Where::Dnload, DfuRequest::Dnload, 64, DfuState::DfuIdle},
                    Place{"Upload", Where::Upload, DfuRequest::Upload, 68, DfuState::DfuIdle},
                    Place{"GetStatus", Where::GetStatus, DfuRequest::GetStatus, 6, DfuState::DfuIdle},
                    Place{"ClrStatus", Where::ClrStatus, DfuRequest::ClrStatus, 0, DfuState::Error},
                    Place{"GetState", Where::GetState, DfuRequest::GetState, 1, DfuState::DfuIdle},
                    Place{"Abort", Where::Abort, DfuRequest::Abort, 0, DfuState::DfuIdle}),
    [](const testing::TestParamInfo<Place>& instance) { return std::string(instance.param.name); });

TEST(Fault, StatusIsAnsweredWithoutTheDeviceHavingIt) {
    CameraDriver driver = InDfuModeWith({{.where = Where::GetStatus, .what = What::Status, .value = 0x03}});
    const StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.end, TransferEnd::Ok);
    EXPECT_EQ(reply.status, DfuStatus::ErrWrite);
    EXPECT_EQ(reply.state, DfuState::DfuIdle);
    EXPECT_EQ(driver.camera.Status(), DfuStatus::Ok);
    EXPECT_EQ(driver.GetStatus().status, DfuStatus::Ok);
}

TEST(Fault, StateIsAnsweredToGetStatusWhileTheDeviceGoesOn) {
    CameraDriver driver = InDfuModeWith({{.where = Where::GetStatus, .what = What::State, .value = 4}});
    driver.Dnload(0, Bytes(8));
    const StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.status, DfuStatus::Ok);
    EXPECT_EQ(reply.state, DfuState::DnBusy);
    EXPECT_EQ(driver.camera.State(), DfuState::DnloadIdle);
}

TEST(Fault, StateIsAnsweredToGetState) {
    CameraDriver driver = InDfuModeWith({{.where = Where::GetState, .what = What::State, .value = 10}});
    EXPECT_EQ(driver.GetState(), DfuState::Error);
    EXPECT_EQ(driver.GetState(), DfuState::DfuIdle);
}

TEST(Fault, StatusAndStateMayStrikeTogether) {
    CameraDriver driver = InDfuModeWith({{.where = Where::GetStatus, .what = What::Status, .value = 0x0E},
                                         {.where = Where::GetStatus, .what = What::State, .value = 10}});
    const StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.status, DfuStatus::ErrUnknown);
    EXPECT_EQ(reply.state, DfuState::Error);
}

TEST(Fault, ShortReplyLeavesTheRestOfTheBufferAlone) {
    CameraDriver driver = InDfuModeWith({{.where = Where::GetStatus, .what = What::ShortReply, .value = 2},
                                         {.where = Where::GetState, .what = What::ShortReply, .value = 0},
                                         {.where = Where::Upload, .what = What::ShortReply, .value = 5}});
    Bytes data(6, 0xAA);
    const TransferResult result = driver.Request(DfuRequest::GetStatus, 0, data);
    EXPECT_EQ(result.end, TransferEnd::Ok);
    EXPECT_EQ(result.transferred, 2U);
    EXPECT_EQ(data, (Bytes{0, 0, 0xAA, 0xAA, 0xAA, 0xAA}));
    EXPECT_EQ(driver.GetState(), DfuState{0xEE});
    EXPECT_EQ(driver.Upload(68).size(), 5U);
}

TEST(Fault, ShortReplyLongerThanTheAnswerChangesNothing) {
    CameraDriver driver =
        InDfuModeWith({{.where = Where::GetStatus, .what = What::ShortReply, .value = 500}});
    EXPECT_EQ(driver.GetStatus().transferred, 6U);
}

TEST(Fault, AnswerOfARefusedRequestIsNotChanged) {
    CameraDriver driver =
        InState(DfuState::Manifest,
                {.personality = Personality::Strict,
                 .faults = {{.where = Where::GetStatus, .what = What::State, .count = 0, .value = 8}}});

    const StatusReply reply = driver.GetStatus();

    EXPECT_EQ(reply.end, TransferEnd::Stall);
    EXPECT_EQ(reply.transferred, 0U);
    EXPECT_EQ(reply.state, DfuState{0xEE});
}

TEST(Fault, SkipsAndCountsTheRequestsOfItsKind) {
    CameraDriver driver =
        InDfuModeWith({{.where = Where::GetState, .what = What::State, .skip = 2, .count = 3, .value = 10}});
    const std::vector<DfuState> expected{DfuState::DfuIdle, DfuState::DfuIdle, DfuState::Error,
                                         DfuState::Error,   DfuState::Error,   DfuState::DfuIdle};
    for (std::size_t number = 0; number < expected.size(); ++number) {
        driver.GetStatus();
        EXPECT_EQ(driver.GetState(), expected[number]) << number;
    }
}

TEST(Fault, CountOfZeroNeverEnds) {
    CameraDriver driver =
        InDfuModeWith({{.where = Where::GetState, .what = What::Timeout, .skip = 1, .count = 0}});
    EXPECT_EQ(driver.GetState(), DfuState::DfuIdle);
    for (int number = 0; number < 50; ++number) {
        EXPECT_EQ(driver.GetState(), DfuState{0xEE});
    }
}

TEST(Fault, LargestSkipAndCountDoNotWrap) {
    CameraDriver driver =
        InDfuModeWith({{.where = Where::GetState, .what = What::Timeout, .skip = 1, .count = 0xFFFF'FFFF}});
    EXPECT_EQ(driver.GetState(), DfuState::DfuIdle);
    EXPECT_EQ(driver.GetState(), DfuState{0xEE});
}

TEST(Fault, EachCountsByItself) {
    CameraDriver driver =
        InDfuModeWith({{.where = Where::GetState, .what = What::Timeout},
                       {.where = Where::GetState, .what = What::State, .skip = 1, .value = 7}});
    EXPECT_EQ(driver.GetState(), DfuState{0xEE});
    EXPECT_EQ(driver.GetState(), DfuState::Manifest);
    EXPECT_EQ(driver.GetState(), DfuState::DfuIdle);
}

TEST(Fault, FirstOfSeveralObstructionsDecides) {
    CameraDriver driver = InDfuModeWith(
        {{.where = Where::Abort, .what = What::Timeout}, {.where = Where::Abort, .what = What::Unplug}});
    EXPECT_EQ(driver.Request(DfuRequest::Abort).end, TransferEnd::Timeout);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
}

TEST(Fault, RequestsThatDoNotReachTheCameraAreNotCounted) {
    CameraDriver driver({.faults = {{.where = Where::GetState, .what = What::Timeout}}});
    driver.GetState();
    driver.camera.Plug(driver.nowMs);
    driver.GetState();
    driver.EnterDfuMode();
    EXPECT_EQ(driver.GetState(), DfuState{0xEE});
    EXPECT_EQ(driver.GetState(), DfuState::DfuIdle);
}

TEST(Fault, CombinationsWithoutMeaningNeverStrike) {
    CameraDriver driver = InDfuModeWith({{.where = Where::Upload, .what = What::Status, .value = 3},
                                         {.where = Where::Upload, .what = What::State, .value = 3},
                                         {.where = Where::Dnload, .what = What::ShortReply, .value = 1},
                                         {.where = Where::GetState, .what = What::Status, .value = 3},
                                         {.where = Where::GetStatus, .what = What::WrongEcho, .value = 3}});
    EXPECT_EQ(driver.Upload(68), InDfuMode().Upload(68));
    EXPECT_EQ(driver.GetState(), DfuState::DfuIdle);
    EXPECT_EQ(driver.GetStatus().status, DfuStatus::Ok);
    EXPECT_EQ(driver.Dnload(0, Bytes(8)).transferred, 8U);
}

TEST(Fault, UnplugInTheMiddleOfADownloadLeavesNoFirmwareThatRuns) {
    CameraDriver driver = InDfuModeWith({{.where = Where::Dnload, .what = What::Unplug, .skip = 2}});
    EXPECT_FALSE(driver.Download(MakeImage(5000)));
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);

    driver.camera.Plug(driver.nowMs);

    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
    EXPECT_EQ(driver.camera.Status(), DfuStatus::ErrFirmware);
    const Bytes sent = MakeImage(2048);
    EXPECT_TRUE(std::equal(sent.begin(), sent.end(), driver.camera.Flash().begin()));
}

TEST(Fault, BlockThatTimedOutIsNotInTheFlash) {
    CameraDriver driver = InDfuModeWith({{.where = Where::Dnload, .what = What::Timeout, .skip = 1}});
    driver.Dnload(0, Bytes(8, 1));
    driver.GetStatus();
    EXPECT_EQ(driver.Dnload(1, Bytes(8, 2)).end, TransferEnd::Timeout);
    driver.Dnload(2, {});
    ASSERT_TRUE(driver.Await(DfuState::ManifestWaitReset));
    EXPECT_EQ(driver.camera.Flash(), Bytes(8, 1));
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 1U);
}

TEST(Fault, BlockWhoseAnswerIsLostIsInTheFlash) {
    CameraDriver driver = InDfuMode(
        {.faults = {{.where = Where::Dnload, .what = What::Timeout, .skip = 1, .moment = Moment::After}},
         .timeoutMs = 5000});
    driver.Dnload(0, Bytes(8, 1));
    driver.GetStatus();
    const TransferResult result = driver.Dnload(1, Bytes(8, 2));
    EXPECT_EQ(result.end, TransferEnd::Timeout);
    EXPECT_EQ(result.transferred, 0U);
    EXPECT_EQ(result.tookMs, 5000U);
    EXPECT_TRUE(driver.Await(DfuState::DnloadIdle));
    driver.Dnload(2, {});
    ASSERT_TRUE(driver.Await(DfuState::ManifestWaitReset));
    EXPECT_EQ(driver.camera.Flash().size(), 16U);
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 0U);
}

TEST(Fault, ImageIsManifestedBeforeTheCableIsPulled) {
    CameraDriver driver = InDfuMode(
        {.manifestsAtOnce = true,
         .faults = {{.where = Where::GetStatus, .what = What::Unplug, .skip = 1, .moment = Moment::After}}});
    const Bytes image = MakeImage(500, {5, 10, 3, 0});
    driver.Dnload(0, image);
    EXPECT_EQ(driver.GetStatus().state, DfuState::DnloadIdle);
    driver.Dnload(1, {});
    EXPECT_EQ(driver.GetStatus().end, TransferEnd::Disconnected);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    EXPECT_EQ(driver.camera.Flash(), image);
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(Fault, TheSwitchIsMadeThoughItsAnswerIsLost) {
    CameraDriver driver =
        RunningWith({{.where = Where::CommandWrite, .what = What::Stall, .moment = Moment::After}});
    EXPECT_EQ(driver.Command(0x1E, {1, 0, 0, 0}).end, TransferEnd::Stall);
    driver.Pass(driver.camera.Settings().detachMs);
    driver.Pass(driver.camera.Settings().enumerateMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
}

TEST(Fault, SetInterfaceMayFailWithOrWithoutItsEffect) {
    for (const bool carriedOut : {false, true}) {
        DfuTraits traits = TraitsOf(Personality::Kv400);
        traits.setInterface = DfuTraits::SetInterface::ResetsState;
        CameraDriver driver = InState(DfuState::DnloadIdle,
                                      {.traits = traits,
                                       .blockMs = 10,
                                       .faults = {{.where = Where::SetInterface,
                                                   .moment = carriedOut ? Moment::After : Moment::Before}}});
        EXPECT_EQ(driver.camera.SetInterface(driver.nowMs).end, TransferEnd::Stall);
        EXPECT_EQ(driver.camera.State(), carriedOut ? DfuState::DfuIdle : DfuState::DnloadIdle);
        EXPECT_EQ(driver.camera.SetInterface(driver.nowMs).end, TransferEnd::Ok);
    }
}

TEST(Fault, StatusThatTimedOutDoesNotCountForTheSelfReset) {
    CameraDriver driver =
        InState(DfuState::ManifestWaitReset,
                {.faults = {{.where = Where::GetStatus, .what = What::Timeout, .skip = 2}}});
    EXPECT_EQ(driver.GetStatus().end, TransferEnd::Timeout);
    EXPECT_EQ(driver.GetStatus().state, DfuState::ManifestWaitReset);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
}

TEST(Fault, CommandWriteMayStallOrTimeOut) {
    CameraDriver driver = RunningWith({{.where = Where::CommandWrite, .what = What::Stall, .skip = 1},
                                       {.where = Where::CommandWrite, .what = What::Timeout, .skip = 2}});
    EXPECT_EQ(driver.Command(0x55).end, TransferEnd::Ok);
    EXPECT_EQ(driver.Command(0x1E, {1, 0, 0, 0}).end, TransferEnd::Stall);
    EXPECT_EQ(driver.Command(0x1E, {1, 0, 0, 0}).end, TransferEnd::Timeout);
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
    EXPECT_EQ(driver.Reply()[0], 0x55);
}

TEST(Fault, CommandWriteMayUnplug) {
    CameraDriver driver = RunningWith({{.where = Where::CommandWrite, .what = What::Unplug}});
    EXPECT_EQ(driver.Command(0x1E, {1, 0, 0, 0}).end, TransferEnd::Disconnected);
    driver.Pass(100'000);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(Fault, CommandReadMayStallTimeOutOrUnplug) {
    CameraDriver driver = RunningWith({{.where = Where::CommandRead, .what = What::Stall},
                                       {.where = Where::CommandRead, .what = What::Timeout, .skip = 1},
                                       {.where = Where::CommandRead, .what = What::Unplug, .skip = 3}});
    Bytes reply(1024);
    EXPECT_EQ(driver.camera.ReadReply(reply, driver.nowMs).end, TransferEnd::Stall);
    EXPECT_EQ(driver.camera.ReadReply(reply, driver.nowMs).end, TransferEnd::Timeout);
    EXPECT_EQ(driver.camera.ReadReply(reply, driver.nowMs).end, TransferEnd::Ok);
    EXPECT_EQ(driver.camera.ReadReply(reply, driver.nowMs).end, TransferEnd::Disconnected);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
}

TEST(Fault, CommandReadMayBeShort) {
    CameraDriver driver =
        RunningWith({{.where = Where::CommandRead, .what = What::ShortReply, .value = 233}});
    driver.Command(0x10);
    EXPECT_EQ(driver.Reply().size(), 233U);
    EXPECT_EQ(driver.Reply().size(), 1024U);
}

TEST(Fault, CommandReadMayEchoAnotherOpcode) {
    CameraDriver driver =
        RunningWith({{.where = Where::CommandRead, .what = What::WrongEcho, .value = 0x12345678}});
    driver.Command(0x10);
    const Bytes wrong = driver.Reply();
    ASSERT_EQ(wrong.size(), 1024U);
    EXPECT_EQ(Bytes(wrong.begin(), wrong.begin() + 4), (Bytes{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(driver.Reply()[0], 0x10);
}

TEST(Fault, WrongEchoOfAReplyThatIsShorterChangesWhatIsThere) {
    CameraDriver driver =
        RunningWith({{.where = Where::CommandRead, .what = What::ShortReply, .value = 2},
                     {.where = Where::CommandRead, .what = What::WrongEcho, .value = 0x12345678}});
    driver.Command(0x10);
    EXPECT_EQ(driver.Reply(), (Bytes{0x78, 0x56}));
}

TEST(Fault, PollTimeChangesOnlyTheTimeThatIsAskedFor) {
    CameraDriver driver =
        InDfuModeWith({{.where = Where::GetStatus, .what = What::PollTime, .value = 0xABCDEF}});
    const StatusReply struck = driver.GetStatus();
    EXPECT_EQ(struck.pollMs, 0xABCDEFu);
    EXPECT_EQ(struck.status, DfuStatus::Ok);
    EXPECT_EQ(struck.state, DfuState::DfuIdle);
    EXPECT_EQ(driver.GetStatus().pollMs, 0u);
}

TEST(Fault, InTheMiddleOfABlockHalfOfItIsTaken) {
    CameraDriver driver =
        InDfuModeWith({{.where = Where::Dnload, .what = What::Unplug, .skip = 1, .moment = Moment::Middle}});
    EXPECT_FALSE(driver.Download(MakeImage(5000)));
    Bytes expected = VirtualCamera({}).Flash();
    const Bytes image = MakeImage(5000);
    std::copy_n(image.begin(), 1024 + 512, expected.begin());
    EXPECT_EQ(driver.camera.Flash(), expected);
}

TEST(Fault, InTheMiddleOfABlockAsManyBytesAreTakenAsItSays) {
    CameraDriver driver = InDfuModeWith(
        {{.where = Where::Dnload, .what = What::Timeout, .value = 100, .moment = Moment::Middle}});
    EXPECT_EQ(driver.Dnload(0, MakeImage(1024)).end, TransferEnd::Timeout);
    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
    driver.camera.Unplug();
    Bytes expected = VirtualCamera({}).Flash();
    const Bytes image = MakeImage(1024);
    std::copy_n(image.begin(), 100, expected.begin());
    EXPECT_EQ(driver.camera.Flash(), expected);
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.Status(), DfuStatus::ErrFirmware);
}

TEST(Fault, InTheMiddleOfABlockAStallSetsTheErrorToo) {
    CameraDriver driver =
        InDfuModeWith({{.where = Where::Dnload, .what = What::Stall, .moment = Moment::Middle}});
    EXPECT_EQ(driver.Dnload(0, MakeImage(1024)).end, TransferEnd::Stall);
    EXPECT_EQ(driver.camera.State(), DfuState::Error);
}

TEST(Fault, OnlyABlockAndAPageHaveAMiddle) {
    CameraDriver driver =
        InDfuModeWith({{.where = Where::GetState, .what = What::Timeout, .moment = Moment::Middle},
                       {.where = Where::GetStatus, .what = What::Unplug, .moment = Moment::Middle}});
    EXPECT_EQ(driver.GetState(), DfuState::DfuIdle);
    EXPECT_EQ(driver.GetStatus().end, TransferEnd::Ok);
}

TEST(Fault, ABlockIsAnsweredBeforePowerGoesAtItsPages) {
    CameraDriver driver = InDfuModeWith({{.where = Where::FlashWrite, .what = What::Unplug}});
    EXPECT_EQ(driver.Dnload(0, MakeImage(64)).end, TransferEnd::Ok);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    EXPECT_EQ(driver.GetStatus().end, TransferEnd::Disconnected);
}

TEST(Fault, PowerThatGoesWhenTheRecordIsWrittenLeavesTheImageWithoutOne) {
    for (const auto& [moment, mode] :
         {std::pair{Moment::Before, BusMode::Dfu}, std::pair{Moment::Middle, BusMode::Dfu},
          std::pair{Moment::After, BusMode::Running}}) {
        CameraDriver driver = InDfuMode(
            {.manifestMs = 100,
             .faults = {{.where = Where::FlashWrite, .what = What::Unplug, .skip = 2, .moment = moment}}});
        const Bytes image = MakeImage(2000, {5, 10, 3, 0});
        ASSERT_TRUE(driver.Download(image));
        EXPECT_EQ(driver.GetStatus().state, DfuState::Manifest);
        driver.Pass(100);
        EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
        const FirmwareVerdict verdict = driver.camera.Firmware(VirtualCamera({}).Flash(), image);
        EXPECT_EQ(verdict.isValid, mode == BusMode::Running);
        EXPECT_FALSE(verdict.IsWrong());
        driver.camera.Plug(driver.nowMs);
        EXPECT_EQ(driver.camera.Mode(), mode);
    }
}

TEST(Fault, AnAbortThatPutsBackIsNotAnsweredWhenPowerGoes) {
    CameraDriver driver = InDfuModeWith({{.where = Where::FlashErase, .what = What::Unplug, .skip = 2}});
    EXPECT_EQ(driver.Dnload(0, MakeImage(64)).end, TransferEnd::Ok);
    EXPECT_EQ(driver.GetStatus().state, DfuState::DnloadIdle);
    EXPECT_EQ(driver.Request(DfuRequest::Abort).end, TransferEnd::Disconnected);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
}

TEST(Fault, PageOperationsKnowNoOtherFault) {
    CameraDriver driver = InDfuModeWith({{.where = Where::FlashErase, .what = What::Stall, .count = 0},
                                         {.where = Where::FlashWrite, .what = What::Timeout, .count = 0}});
    EXPECT_TRUE(driver.Download(MakeImage(3000)));
}

TEST(Fault, IsCountedOnceItHasStruck) {
    CameraDriver driver =
        InDfuModeWith({{.where = Where::GetState, .what = What::Timeout, .skip = 1, .count = 0},
                       {.where = Where::FlashErase, .what = What::Unplug, .skip = 1},
                       {.where = Where::GetState, .what = What::Status}});
    driver.GetState();
    EXPECT_EQ(driver.camera.FaultsMet(), 0U);
    driver.GetState();
    driver.GetState();
    EXPECT_EQ(driver.camera.FaultsMet(), 1U);
    driver.Dnload(0, MakeImage(64));
    EXPECT_EQ(driver.camera.FaultsMet(), 2U);
}

TEST(Fault, OthersMayComeInTheirPlace) {
    CameraDriver driver = InDfuModeWith({{.where = Where::GetState, .what = What::Stall, .count = 0},
                                         {.where = Where::FlashErase, .what = What::Unplug}});
    EXPECT_EQ(driver.GetState(), DfuState{0xEE});
    driver.camera.SetFaults({{.where = Where::GetState, .what = What::State, .skip = 1, .value = 7}});
    driver.Request(DfuRequest::ClrStatus);
    EXPECT_EQ(driver.GetState(), DfuState::DfuIdle);
    EXPECT_EQ(driver.GetState(), DfuState::Manifest);
    EXPECT_TRUE(driver.Download(MakeImage(64)));
}

TEST(Fault, HalfAnImageLooksValidToABootLoaderThatLooksAtTheFirstPage) {
    DfuTraits traits = TraitsOf(Personality::Kv400);
    traits.bootCheck = DfuTraits::BootCheck::FirstPage;
    CameraDriver driver =
        InDfuMode({.traits = traits, .faults = {{.where = Where::Dnload, .what = What::Unplug, .skip = 1}}});
    const Bytes image = MakeImage(2000);
    EXPECT_FALSE(driver.Download(image));
    const FirmwareVerdict verdict = driver.camera.Firmware(VirtualCamera({}).Flash(), image);
    EXPECT_TRUE(verdict.IsWrong());
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(Fault, TheVerdictTellsOldFromImage) {
    CameraDriver driver = InDfuMode({.manifestMs = 0});
    const Bytes old = driver.camera.Flash();
    const Bytes image = MakeImage(2000);
    EXPECT_EQ(driver.camera.Firmware(old, image).content, FirmwareVerdict::Content::Old);
    EXPECT_TRUE(driver.Download(image));
    // Written, and without its record.
    EXPECT_FALSE(driver.camera.Firmware(old, image).isValid);
    EXPECT_TRUE(driver.Await(DfuState::ManifestWaitReset));
    EXPECT_EQ(driver.camera.Firmware(old, image).content, FirmwareVerdict::Content::Image);
    EXPECT_TRUE(driver.camera.Firmware(old, image).isValid);
}

}  // namespace
}  // namespace lab::test
