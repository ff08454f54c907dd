#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>
#include <vector>

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Kv400

TEST(Kv400Personality, AnswersTheStatusBlockAndStaysIdle) {
    CameraDriver driver = InDfuMode();

    const Bytes block = driver.Upload(68);

    EXPECT_EQ(block.size(), 68U);
    constexpr std::string_view kTitle = "KV400 boot loader";
    EXPECT_TRUE(std::equal(kTitle.begin(), kTitle.end(), block.begin()));
    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
    EXPECT_EQ(driver.Upload(68), block);
}

TEST(Kv400Personality, StatusBlockIsNoLongerThanAskedForAndThanItIs) {
    CameraDriver driver = InDfuMode();
    EXPECT_EQ(driver.Upload(10).size(), 10U);
    EXPECT_EQ(driver.Upload(1024).size(), 68U);
    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
}

TEST(Kv400Personality, StatusBlockIsRefusedBeyondTheTransferSize) {
    CameraDriver driver = InDfuMode({.transferSize = 64});
    EXPECT_EQ(driver.Upload(68), Bytes{});
    EXPECT_EQ(driver.camera.State(), DfuState::Error);
}

// The road of a host that knows no bwPollTimeout: it polls every 200 ms.
TEST(Kv400Personality, ServesAHostThatPollsAtAFixedPace) {
    CameraDriver driver = InDfuMode({.blockMs = 450, .manifestMs = 950, .resetMs = 1000});
    const Bytes image = MakeImage(3000);
    const auto await = [&driver](DfuState wanted) {
        int polls = 1;
        for (StatusReply reply = driver.GetStatus(); reply.state != wanted; reply = driver.GetStatus()) {
            if (reply.end != TransferEnd::Ok || polls > 50) {
                return 0;
            }
            driver.Pass(200);
            ++polls;
        }
        return polls;
    };

    EXPECT_EQ(driver.GetState(), DfuState::DfuIdle);
    EXPECT_EQ(driver.Request(DfuRequest::Detach, 1000).end, TransferEnd::Ok);
    EXPECT_EQ(driver.GetState(), DfuState::DfuIdle);
    EXPECT_EQ(driver.Upload(68).size(), 68U);
    for (std::uint16_t block = 0; block < 3; ++block) {
        const auto begin = image.begin() + block * 1024;
        const auto end = block == 2 ? image.end() : begin + 1024;
        ASSERT_EQ(driver.Dnload(block, {begin, end}).end, TransferEnd::Ok);
        ASSERT_EQ(await(DfuState::DnloadIdle), 4);
    }
    ASSERT_EQ(driver.Dnload(3, {}).end, TransferEnd::Ok);
    ASSERT_EQ(await(DfuState::ManifestWaitReset), 6);
    EXPECT_EQ(driver.GetStatus().end, TransferEnd::Disconnected);
    driver.Pass(200);

    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), image);
}

TEST(Kv400Personality, ResetsItselfOnTheSecondStatusAfterManifestation) {
    CameraDriver driver = InState(DfuState::ManifestWaitReset, {.blockMs = 10, .resetMs = 1000});

    EXPECT_EQ(driver.GetStatus().state, DfuState::ManifestWaitReset);
    EXPECT_EQ(driver.GetState(), DfuState::ManifestWaitReset);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
    const StatusReply second = driver.GetStatus();

    EXPECT_EQ(second.end, TransferEnd::Disconnected);
    EXPECT_EQ(second.transferred, 0U);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + driver.camera.Settings().enumerateMs);
}

TEST(Kv400Personality, ResetsItselfWhenNobodyAsks) {
    CameraDriver driver =
        InState(DfuState::ManifestWaitReset, {.blockMs = 10, .resetMs = 1000, .enumerateMs = 200});
    EXPECT_EQ(driver.camera.NextDeadline(), driver.nowMs + 1000);

    driver.Pass(999);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
    driver.Pass(1);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    driver.Pass(200);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(Kv400Personality, ResetTimeRunsFromTheEndOfManifestation) {
    CameraDriver driver = InDfuMode({.manifestMs = 300, .resetMs = 1000});
    driver.Download(MakeImage(10));
    driver.GetStatus();
    const std::uint64_t end = driver.nowMs + 300 + 1000;

    driver.Pass(700);

    EXPECT_EQ(driver.camera.State(), DfuState::ManifestWaitReset);
    EXPECT_EQ(driver.camera.NextDeadline(), end);
}

TEST(Kv400Personality, ManifestsOnlyOnceItIsAskedForItsStatus) {
    CameraDriver driver = InDfuMode();
    driver.Download(MakeImage(10));
    driver.Pass(100'000);
    EXPECT_EQ(driver.camera.State(), DfuState::ManifestSync);
}

// Strict

TEST(StrictPersonality, UpdatesAHostThatKeepsThePollTimes) {
    CameraDriver driver = InDfuMode({.personality = Personality::Strict, .blockMs = 30});
    const Bytes image = MakeImage(5000, {1, 2, 3, 4});
    ASSERT_TRUE(driver.Download(image));
    EXPECT_EQ(driver.GetStatus().state, DfuState::Manifest);
    driver.Pass(300);
    EXPECT_EQ(driver.camera.State(), DfuState::ManifestWaitReset);
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);

    driver.camera.Unplug();
    driver.camera.Plug(driver.nowMs);

    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), image);
    EXPECT_EQ(driver.camera.Version(), "1.2.3.4");
}

TEST(StrictPersonality, PunishesAPollThatComesTooEarly) {
    CameraDriver driver = InDfuMode({.personality = Personality::Strict, .blockMs = 300});
    driver.Dnload(0, Bytes(8));
    EXPECT_EQ(driver.GetStatus().pollMs, 300U);
    driver.Pass(299);

    EXPECT_EQ(driver.GetStatus().end, TransferEnd::Stall);

    EXPECT_EQ(driver.camera.State(), DfuState::Error);
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
}

TEST(StrictPersonality, UploadsTheFlashAndEndsWithAShortFrame) {
    CameraDriver driver = InDfuMode({.personality = Personality::Strict, .transferSize = 1000});
    Bytes read;
    for (std::size_t frame = 0; frame < 5; ++frame) {
        const Bytes bytes = driver.Upload(1000);
        EXPECT_EQ(bytes.size(), frame < 4 ? 1000U : 96U);
        EXPECT_EQ(driver.camera.State(), frame < 4 ? DfuState::UploadIdle : DfuState::DfuIdle);
        read.insert(read.end(), bytes.begin(), bytes.end());
    }
    EXPECT_EQ(read, driver.camera.Flash());
}

TEST(StrictPersonality, UploadOfWholeFramesEndsWithAnEmptyOne) {
    CameraDriver driver = InDfuMode({.personality = Personality::Strict});
    for (int frame = 0; frame < 4; ++frame) {
        EXPECT_EQ(driver.Upload(1024).size(), 1024U);
    }
    EXPECT_EQ(driver.camera.State(), DfuState::UploadIdle);
    EXPECT_EQ(driver.Upload(1024).size(), 0U);
    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
}

TEST(StrictPersonality, UploadBeginsAnewAfterAbort) {
    CameraDriver driver = InDfuMode({.personality = Personality::Strict});
    const Bytes first = driver.Upload(100);
    EXPECT_NE(driver.Upload(100), first);
    driver.Request(DfuRequest::Abort);
    EXPECT_EQ(driver.Upload(100), first);
}

TEST(StrictPersonality, RefusesUploadsOfNothingOrTooMuch) {
    for (const std::uint16_t length : {std::uint16_t{0}, std::uint16_t{1025}}) {
        CameraDriver driver = InDfuMode({.personality = Personality::Strict});
        Bytes data(length);
        EXPECT_EQ(driver.Request(DfuRequest::Upload, 0, data).end, TransferEnd::Stall) << length;
        EXPECT_EQ(driver.camera.State(), DfuState::Error) << length;
    }
}

TEST(StrictPersonality, KeepsTheFirstErrorUntilItIsCleared) {
    CameraDriver driver = InDfuMode({.personality = Personality::Strict});
    driver.Dnload(0, {});
    driver.Request(DfuRequest::Detach);
    EXPECT_EQ(driver.GetStatus().status, DfuStatus::ErrNotDone);
}

// Lenient

TEST(LenientPersonality, HidesTheTimeOfWritingABlock) {
    CameraDriver driver = InDfuMode({.personality = Personality::Lenient, .blockMs = 100});
    driver.Dnload(0, Bytes(8));
    for (int poll = 0; poll < 2; ++poll) {
        const StatusReply reply = driver.GetStatus();
        EXPECT_EQ(reply.state, DfuState::DnBusy);
        EXPECT_EQ(reply.pollMs, 0U);
        driver.Pass(50);
    }
    EXPECT_EQ(driver.GetStatus().state, DfuState::DnloadIdle);
}

TEST(LenientPersonality, DownloadGoesOnAfterARefusedRequest) {
    CameraDriver driver = InDfuMode({.personality = Personality::Lenient});
    driver.Dnload(0, Bytes(8, 1));
    EXPECT_EQ(driver.Dnload(1, Bytes(8, 2)).end, TransferEnd::Stall);
    EXPECT_EQ(driver.GetStatus().state, DfuState::DnloadIdle);
    EXPECT_EQ(driver.Dnload(1, Bytes(2000)).end, TransferEnd::Stall);
    EXPECT_EQ(driver.Request(DfuRequest::Detach).end, TransferEnd::Stall);
    driver.Dnload(1, {});
    driver.GetStatus();
    driver.Pass(300);
    EXPECT_EQ(driver.camera.State(), DfuState::ManifestWaitReset);
    EXPECT_EQ(driver.camera.Flash(), Bytes(8, 1));
}

TEST(LenientPersonality, RunsTheImageAfterItsNextPowerCycle) {
    CameraDriver driver = InDfuMode({.personality = Personality::Lenient});
    const Bytes image = MakeImage(3000);
    ASSERT_TRUE(driver.Download(image));
    driver.GetStatus();
    driver.Pass(300);
    EXPECT_EQ(driver.GetStatus().end, TransferEnd::Stall);
    driver.Pass(100'000);
    EXPECT_EQ(driver.camera.State(), DfuState::ManifestWaitReset);

    driver.camera.Unplug();
    driver.camera.Plug(driver.nowMs);

    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), image);
}

// Synchronous

TEST(SynchronousPersonality, IsNeverSeenWritingABlock) {
    CameraDriver driver = InDfuMode({.personality = Personality::Synchronous, .blockMs = 60'000});
    driver.Dnload(0, Bytes(8));
    const StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.state, DfuState::DnloadIdle);
    EXPECT_EQ(reply.pollMs, 0U);
}

TEST(SynchronousPersonality, ManifestationEndsInIdleWithTheNewFlash) {
    CameraDriver driver = InDfuMode({.personality = Personality::Synchronous});
    const Bytes image = MakeImage(3000);
    ASSERT_TRUE(driver.Download(image));
    const StatusReply manifesting = driver.GetStatus();
    EXPECT_EQ(manifesting.state, DfuState::Manifest);
    EXPECT_EQ(manifesting.pollMs, 300U);
    driver.Pass(300);
    EXPECT_EQ(driver.camera.State(), DfuState::ManifestSync);

    EXPECT_EQ(driver.GetStatus().state, DfuState::DfuIdle);

    EXPECT_EQ(driver.camera.Flash(), image);
    EXPECT_EQ(driver.camera.NextDeadline(), std::nullopt);
    driver.camera.Unplug();
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(SynchronousPersonality, TakesASecondImageWithoutLeavingDfuMode) {
    CameraDriver driver = InDfuMode({.personality = Personality::Synchronous});
    for (const std::size_t size : {std::size_t{3000}, std::size_t{500}}) {
        ASSERT_TRUE(driver.Download(MakeImage(size)));
        ASSERT_TRUE(driver.Await(DfuState::DfuIdle));
        EXPECT_EQ(driver.camera.Flash(), MakeImage(size));
    }
    EXPECT_EQ(driver.camera.BlockNumberGaps(), 0U);
}

}  // namespace
}  // namespace lab::test
