#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <vector>

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(VirtualCamera, StartsWithAFlashThatHoldsItsVersion) {
    const VirtualCamera camera({.version = {5, 10, 2, 0}});
    ASSERT_EQ(camera.Flash().size(), 4096U);
    EXPECT_EQ(Bytes(camera.Flash().begin() + 398, camera.Flash().begin() + 402), (Bytes{0, 2, 10, 5}));
    EXPECT_EQ(camera.Version(), "5.10.2.0");
    EXPECT_EQ(camera.Flash(), VirtualCamera({.version = {5, 10, 2, 0}}).Flash());
}

TEST(VirtualCamera, VersionTextHasTheWholeRangeOfEachNumber) {
    EXPECT_EQ(VirtualCamera({.version = {255, 0, 255, 1}}).Version(), "255.0.255.1");
    EXPECT_EQ(VirtualCamera({.version = {0, 0, 0, 0}}).Version(), "0.0.0.0");
}

TEST(VirtualCamera, StallsDfuRequestsInRunningMode) {
    CameraDriver driver = Running();
    EXPECT_EQ(driver.GetStatus().end, TransferEnd::Stall);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(VirtualCamera, ComesBackRunningWithTheDownloadedImage) {
    CameraDriver driver = InDfuMode();
    const Bytes image = MakeImage(10 * 1024 + 17, {5, 10, 3, 0});

    ASSERT_TRUE(driver.Download(image));
    ASSERT_TRUE(driver.Await(DfuState::ManifestWaitReset));
    EXPECT_EQ(driver.GetStatus().end, TransferEnd::Disconnected);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    driver.Pass(driver.camera.Settings().enumerateMs);

    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), image);
    EXPECT_EQ(driver.camera.Version(), "5.10.3.0");
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 0U);
    driver.Command(0x10);
    const Bytes reply = driver.Reply();
    ASSERT_EQ(reply.size(), 1024U);
    EXPECT_EQ(Bytes(reply.begin() + 16, reply.begin() + 20), (Bytes{0, 3, 10, 5}));
}

TEST(VirtualCamera, CanBeUpdatedAgainAndAgain) {
    CameraDriver driver;
    for (std::uint8_t round = 1; round <= 3; ++round) {
        driver.camera.Plug(driver.nowMs);
        driver.EnterDfuMode();
        ASSERT_EQ(driver.camera.Mode(), BusMode::Dfu);
        ASSERT_TRUE(driver.Download(MakeImage(500U * round, {round, 0, 0, 1})));
        ASSERT_TRUE(driver.Await(DfuState::ManifestWaitReset));
        driver.Pass(driver.camera.Settings().resetMs);
        driver.Pass(driver.camera.Settings().enumerateMs);
        ASSERT_EQ(driver.camera.Mode(), BusMode::Running);
        EXPECT_EQ(driver.camera.Version(), std::to_string(round) + ".0.0.1");
    }
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 0U);
}

TEST(VirtualCamera, KeepsTheOldFlashUntilManifestationIsOver) {
    CameraDriver driver({.manifestMs = 300});
    const Bytes before = driver.camera.Flash();
    driver.EnterDfuMode();
    ASSERT_TRUE(driver.Download(MakeImage(2000)));
    EXPECT_EQ(driver.GetStatus().state, DfuState::Manifest);

    driver.Pass(299);
    EXPECT_EQ(driver.camera.Flash(), before);
    driver.Pass(1);
    EXPECT_EQ(driver.camera.Flash(), MakeImage(2000));
}

TEST(VirtualCamera, CountsMissingVersionBytesOfAShortImageAsZero) {
    for (const auto& [size, version] :
         {std::pair{1U, "0.0.0.0"}, std::pair{398U, "0.0.0.0"}, std::pair{399U, "0.0.0.9"},
          std::pair{401U, "0.7.8.9"}, std::pair{402U, "6.7.8.9"}}) {
        CameraDriver driver = InDfuMode();
        Bytes image = MakeImage(402, {6, 7, 8, 9});
        image.resize(size);
        ASSERT_TRUE(driver.Download(image));
        ASSERT_TRUE(driver.Await(DfuState::ManifestWaitReset));
        EXPECT_EQ(driver.camera.Flash(), image);
        EXPECT_EQ(driver.camera.Version(), version) << size;
    }
}

TEST(VirtualCamera, AppendsBlocksInTheirOrderOfArrivalAndCountsGaps) {
    CameraDriver driver = InDfuMode();
    Bytes image;
    for (const std::uint16_t number :
         {std::uint16_t{4}, std::uint16_t{5}, std::uint16_t{7}, std::uint16_t{6}}) {
        const Bytes block(100, static_cast<std::uint8_t>(number));
        ASSERT_EQ(driver.Dnload(number, block).transferred, 100U);
        ASSERT_EQ(driver.GetStatus().state, DfuState::DnloadIdle);
        image.insert(image.end(), block.begin(), block.end());
    }
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 2U);
    driver.Dnload(7, {});
    ASSERT_TRUE(driver.Await(DfuState::ManifestWaitReset));

    EXPECT_EQ(driver.camera.Flash(), image);
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 2U);
}

TEST(VirtualCamera, RepeatedBlockNumberIsAGap) {
    CameraDriver driver = InDfuMode();
    driver.Dnload(0, Bytes(8));
    driver.GetStatus();
    driver.Dnload(0, Bytes(8));
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 1U);
}

TEST(VirtualCamera, ClosingDownloadRequestTakesPartInTheNumbering) {
    CameraDriver driver = InDfuMode();
    driver.Dnload(0, Bytes(8));
    driver.GetStatus();
    driver.Dnload(0, {});
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 1U);
}

TEST(VirtualCamera, RefusedDownloadRequestTakesNoPartInTheNumbering) {
    CameraDriver driver = InDfuMode({.personality = Personality::Lenient});
    driver.Dnload(0, Bytes(8));
    EXPECT_EQ(driver.Dnload(9, Bytes(8)).end, TransferEnd::Stall);
    driver.GetStatus();
    driver.Dnload(1, Bytes(8));
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 0U);
}

TEST(VirtualCamera, ANewDownloadMayBeginWithAnyBlockNumber) {
    CameraDriver driver = InDfuMode();
    driver.Dnload(30, Bytes(8));
    driver.Request(DfuRequest::Abort);
    driver.Dnload(0, Bytes(8));
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 0U);
}

TEST(VirtualCamera, BlockNumbersWrapWithoutAGap) {
    CameraDriver driver = InDfuMode({.transferSize = 1});
    const Bytes image = MakeImage(65'536 + 3);

    ASSERT_TRUE(driver.Download(image));
    ASSERT_TRUE(driver.Await(DfuState::ManifestWaitReset));

    EXPECT_EQ(driver.camera.Flash(), image);
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 0U);
}

TEST(VirtualCamera, TakesBlocksUpToTheTransferSizeOnly) {
    CameraDriver driver = InDfuMode({.personality = Personality::Strict, .transferSize = 64});
    EXPECT_EQ(driver.Dnload(0, Bytes(64)).transferred, 64U);
    driver.GetStatus();

    const TransferResult result = driver.Dnload(1, Bytes(65));

    EXPECT_EQ(result.end, TransferEnd::Stall);
    EXPECT_EQ(result.transferred, 0U);
    const StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.state, DfuState::Error);
    EXPECT_EQ(reply.status, DfuStatus::ErrStalledPkt);
}

TEST(VirtualCamera, TransferSizeOfZeroTakesNoBlockAtAll) {
    CameraDriver driver = InDfuMode({.transferSize = 0});
    EXPECT_EQ(driver.Dnload(0, Bytes(1)).end, TransferEnd::Stall);
}

TEST(VirtualCamera, RefusesADownloadWithoutABlock) {
    CameraDriver driver = InDfuMode();

    EXPECT_EQ(driver.Dnload(0, {}).end, TransferEnd::Stall);

    const StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.state, DfuState::Error);
    EXPECT_EQ(reply.status, DfuStatus::ErrNotDone);
}

TEST(VirtualCamera, ClearingTheErrorAllowsADownloadFromTheStart) {
    CameraDriver driver = InDfuMode();
    driver.Dnload(0, Bytes(100, 0x77));
    driver.Request(DfuRequest::ClrStatus);
    ASSERT_EQ(driver.camera.State(), DfuState::Error);

    ASSERT_EQ(driver.Request(DfuRequest::ClrStatus).end, TransferEnd::Ok);
    EXPECT_EQ(driver.camera.Status(), DfuStatus::Ok);
    ASSERT_TRUE(driver.Download(MakeImage(900)));
    ASSERT_TRUE(driver.Await(DfuState::ManifestWaitReset));

    EXPECT_EQ(driver.camera.Flash(), MakeImage(900));
}

TEST(VirtualCamera, AbortDropsWhatWasDownloaded) {
    CameraDriver driver = InDfuMode();
    driver.Dnload(0, Bytes(100, 0x77));
    driver.GetStatus();

    ASSERT_EQ(driver.Request(DfuRequest::Abort).end, TransferEnd::Ok);
    ASSERT_TRUE(driver.Download(MakeImage(900)));
    ASSERT_TRUE(driver.Await(DfuState::ManifestWaitReset));

    EXPECT_EQ(driver.camera.Flash(), MakeImage(900));
}

TEST(VirtualCamera, AbortEndsTheWritingOfABlock) {
    CameraDriver driver = InDfuMode({.blockMs = 100});
    driver.Dnload(0, Bytes(100));
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + 100);

    driver.Request(DfuRequest::Abort);

    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
}

TEST(VirtualCamera, TakesOnlyClassRequestsToItsInterface) {
    const std::vector<SetupPacket> strangers{
        {.requestType = 0x80, .request = 6, .value = 0x0100, .length = 18},
        {.requestType = 0xC1, .request = 3, .length = 6},
        {.requestType = 0xA0, .request = 3, .length = 6},
        {.requestType = 0xA2, .request = 3, .length = 6},
        {.requestType = 0xA3, .request = 3, .length = 6},
        {.requestType = 0xE1, .request = 3, .length = 6},
        {.requestType = 0xA1, .request = 3, .index = 1, .length = 6}};
    for (const SetupPacket& setup : strangers) {
        CameraDriver driver = InDfuMode({.personality = Personality::Strict});
        Bytes data(18, 0xAA);
        EXPECT_EQ(driver.camera.ControlTransfer(setup, data, driver.nowMs).end, TransferEnd::Stall);
        EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
        EXPECT_EQ(data, Bytes(18, 0xAA));
    }
}

TEST(VirtualCamera, ReplyIsCutToTheRequestedLength) {
    CameraDriver driver = InDfuMode();
    Bytes data(16, 0xAA);
    const SetupPacket setup{.requestType = 0xA1, .request = 3, .length = 5};

    EXPECT_EQ(driver.camera.ControlTransfer(setup, data, driver.nowMs).transferred, 5U);

    EXPECT_EQ(data, (Bytes{0, 0, 0, 0, 2, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}));
}

TEST(VirtualCamera, ReplyIsNoLongerThanTheAnswer) {
    CameraDriver driver = InDfuMode();
    Bytes data(16, 0xAA);
    const SetupPacket setup{.requestType = 0xA1, .request = 3, .length = 16};

    EXPECT_EQ(driver.camera.ControlTransfer(setup, data, driver.nowMs).transferred, 6U);

    EXPECT_EQ(data[6], 0xAA);
}

// Reads and writes stay inside the caller's buffer even when the setup packet claims more.
TEST(VirtualCamera, NeverLeavesTheCallersBuffer) {
    CameraDriver driver = InDfuMode();
    Bytes data(3);

    EXPECT_EQ(
        driver.camera.ControlTransfer({.requestType = 0xA1, .request = 3, .length = 6}, data, driver.nowMs)
            .transferred,
        3U);
    EXPECT_EQ(
        driver.camera.ControlTransfer({.requestType = 0x21, .request = 1, .length = 1024}, data, driver.nowMs)
            .transferred,
        3U);
}

TEST(VirtualCamera, PollTimeIsWhatIsLeftOfWritingTheBlock) {
    CameraDriver driver = InDfuMode({.blockMs = 500});
    driver.Dnload(0, Bytes(8));
    driver.Pass(100);
    StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.state, DfuState::DnBusy);
    EXPECT_EQ(reply.pollMs, 400U);
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + 400);

    driver.Pass(399);
    reply = driver.GetStatus();
    EXPECT_EQ(reply.state, DfuState::DnBusy);
    EXPECT_EQ(reply.pollMs, 1U);

    driver.Pass(1);
    EXPECT_EQ(driver.camera.State(), DfuState::DnloadSync);
    reply = driver.GetStatus();
    EXPECT_EQ(reply.state, DfuState::DnloadIdle);
    EXPECT_EQ(reply.pollMs, 0U);
}

TEST(VirtualCamera, WithoutWritingTimeTheFirstStatusSaysThatTheBlockIsWritten) {
    for (const auto personality :
         {Personality::Kv400, Personality::Strict, Personality::Lenient, Personality::Synchronous}) {
        CameraDriver driver = InDfuMode({.personality = personality, .blockMs = 0});
        driver.Dnload(0, Bytes(8));
        EXPECT_EQ(driver.GetStatus().state, DfuState::DnloadIdle) << NameOf(personality);
    }
}

TEST(VirtualCamera, ABlockIsWrittenInTheBackground) {
    CameraDriver driver = InDfuMode({.personality = Personality::Strict, .blockMs = 100});
    driver.Dnload(0, Bytes(8));
    driver.Pass(100);
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
    EXPECT_EQ(driver.camera.State(), DfuState::DnloadSync);

    EXPECT_EQ(driver.GetStatus().state, DfuState::DnloadIdle);
}

TEST(VirtualCamera, PollTimeIsWhatIsLeftOfManifestation) {
    CameraDriver driver = InDfuMode({.manifestMs = 70'000});
    driver.Download(MakeImage(10));
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);

    EXPECT_EQ(driver.GetStatus().pollMs, 70'000U);
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + 70'000);
    driver.Pass(69'000);
    EXPECT_EQ(driver.GetStatus().pollMs, 1000U);
    driver.Pass(1000);
    const StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.state, DfuState::ManifestWaitReset);
    EXPECT_EQ(reply.pollMs, 0U);
}

TEST(VirtualCamera, PollTimeIsCutToItsThreeBytes) {
    CameraDriver driver = InDfuMode({.manifestMs = 0x100'0001});
    driver.Download(MakeImage(10));
    EXPECT_EQ(driver.GetStatus().pollMs, 0xFF'FFFFU);
}

TEST(VirtualCamera, ManifestationWithoutTimeStillPassesThroughItsState) {
    CameraDriver driver = InDfuMode({.manifestMs = 0});
    driver.Download(MakeImage(10));
    EXPECT_EQ(driver.GetStatus().state, DfuState::Manifest);
    EXPECT_EQ(driver.GetStatus().state, DfuState::ManifestWaitReset);
}

TEST(VirtualCamera, ManifestationAtOnceIsNeverSeen) {
    CameraDriver driver = InDfuMode({.manifestsAtOnce = true});
    driver.Download(MakeImage(10));
    EXPECT_EQ(driver.GetStatus().state, DfuState::ManifestWaitReset);
    EXPECT_EQ(driver.camera.Flash(), MakeImage(10));
}

TEST(VirtualCamera, ManifestationAtOnceEndsInIdleWhenTheDeviceTolerates) {
    CameraDriver driver = InDfuMode({.personality = Personality::Synchronous, .manifestsAtOnce = true});
    driver.Download(MakeImage(10));
    EXPECT_EQ(driver.GetStatus().state, DfuState::DfuIdle);
    EXPECT_EQ(driver.camera.Flash(), MakeImage(10));
}

TEST(VirtualCamera, TellsTheMemoryThatItsFlashTakes) {
    CameraDriver driver;
    const std::size_t empty = driver.camera.HeldBytes();
    EXPECT_GE(empty, driver.camera.Flash().size());
    driver.EnterDfuMode();
    driver.Dnload(0, MakeImage(1000));
    EXPECT_GE(driver.camera.HeldBytes(), empty + 1000);
}

// Refused ones count too: they were on the bus. What comes when the camera is elsewhere reaches nothing.
TEST(VirtualCamera, CountsTheControlTransfersOfItsStayInDfuMode) {
    CameraDriver driver = InDfuMode();
    EXPECT_EQ(driver.camera.Transfers(), 0U);
    driver.GetStatus();
    driver.camera.ControlTransfer({.requestType = 0x80, .request = 6}, {}, driver.nowMs);
    EXPECT_EQ(driver.camera.Transfers(), 2U);

    driver.camera.Unplug();
    driver.camera.ControlTransfer({.requestType = 0xA1, .request = 5}, {}, driver.nowMs);
    EXPECT_EQ(driver.camera.Transfers(), 2U);
    driver.EnterDfuMode();
    EXPECT_EQ(driver.camera.Transfers(), 0U);
}

TEST(VirtualCamera, OneLongStepOfTimeIsTheSameAsManyShortOnes) {
    CameraDriver driver = InDfuMode({.manifestMs = 300, .resetMs = 1000, .enumerateMs = 200});
    driver.Download(MakeImage(402, {9, 9, 9, 9}));
    driver.GetStatus();

    driver.Pass(300 + 1000 + 199);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + 1);
    driver.Pass(1'000'000);

    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Version(), "9.9.9.9");
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
}

TEST(VirtualCamera, TimesOfZeroHappenAtOnce) {
    CameraDriver driver = Running({.manifestMs = 0, .resetMs = 0, .detachMs = 0, .enumerateMs = 0});
    driver.Command(0x1E, {1, 0, 0, 0});
    driver.Pass(0);
    ASSERT_EQ(driver.camera.Mode(), BusMode::Dfu);
    driver.Download(MakeImage(10));
    driver.GetStatus();
    driver.Pass(0);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), MakeImage(10));
}

}  // namespace
}  // namespace lab::test
