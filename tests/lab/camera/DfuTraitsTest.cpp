#include "lab/camera/DfuTraits.h"

#include <gtest/gtest.h>

#include "tests/lab/camera/CameraDriver.h"

#include <algorithm>
#include <array>
#include <vector>

// Each trait by itself, on a camera that has the KV400's others.
namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

template <typename Change>
CameraSettings With(Change change, CameraSettings settings = {}) {
    settings.traits = TraitsOf(Personality::Kv400);
    change(*settings.traits);
    return settings;
}

TEST(DfuTraits, RestartsTheFirmwareWhenItIsDetached) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) { t.detach = DfuTraits::Detach::Restarts; }));
    EXPECT_EQ(driver.Request(DfuRequest::Detach, 1000).end, TransferEnd::Ok);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
    driver.Pass(driver.camera.Settings().enumerateMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
}

TEST(DfuTraits, RestartsInDfuModeWhenItIsDetached) {
    CameraDriver driver =
        InState(DfuState::DnloadIdle,
                With([](DfuTraits& t) { t.detach = DfuTraits::Detach::RestartsInDfuMode; }, {.blockMs = 10}));
    const Bytes before = driver.camera.Flash();
    for (int time = 0; time < 3; ++time) {
        EXPECT_EQ(driver.Request(DfuRequest::Detach, 1000).end, TransferEnd::Ok);
        EXPECT_EQ(driver.camera.Mode(), BusMode::Absent);
        driver.Pass(driver.camera.Settings().enumerateMs);
        EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
    }
    driver.camera.Unplug();
    driver.camera.Plug(driver.nowMs);
    EXPECT_EQ(driver.camera.Mode(), BusMode::Running);
    EXPECT_EQ(driver.camera.Flash(), before);
}

TEST(DfuTraits, RefusesTheDetach) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) { t.detach = DfuTraits::Detach::Stalls; }));
    EXPECT_EQ(driver.Request(DfuRequest::Detach, 1000).end, TransferEnd::Stall);
    EXPECT_EQ(driver.camera.State(), DfuState::Error);
}

TEST(DfuTraits, UploadsTheFlash) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) { t.upload = DfuTraits::Upload::Flash; }));
    const Bytes first = driver.Upload(68);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), driver.camera.Flash().begin()));
    EXPECT_EQ(driver.camera.State(), DfuState::UploadIdle);
    EXPECT_EQ(driver.Dnload(0, MakeImage(100)).end, TransferEnd::Stall);
}

TEST(DfuTraits, RefusesTheUpload) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) { t.upload = DfuTraits::Upload::Stalls; }));
    EXPECT_EQ(driver.Upload(68), Bytes{});
    EXPECT_EQ(driver.camera.State(), DfuState::Error);
}

TEST(DfuTraits, DropsBlocksWhileItUploads) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) {
        t.upload = DfuTraits::Upload::Flash;
        t.dropsBlocksInUpload = true;
    }));
    const Bytes before = driver.camera.Flash();
    EXPECT_EQ(driver.Upload(68).size(), 68U);
    EXPECT_EQ(driver.Dnload(0, MakeImage(100)).transferred, 100U);
    EXPECT_EQ(driver.GetStatus().state, DfuState::UploadIdle);
    EXPECT_EQ(driver.camera.Flash(), before);
}

TEST(DfuTraits, IsBusyAtFirstThoughTheBlockIsWritten) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) { t.isBusyFirst = true; }));
    for (std::uint16_t block = 0; block < 2; ++block) {
        EXPECT_EQ(driver.Dnload(block, MakeImage(1024)).end, TransferEnd::Ok);
        EXPECT_EQ(driver.GetStatus().state, DfuState::DnBusy);
        EXPECT_EQ(driver.GetStatus().state, DfuState::DnloadIdle);
    }
}

TEST(DfuTraits, IsBusyForAsLongAsItWrites) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) { t.isBusyFirst = true; }, {.blockMs = 300}));
    EXPECT_EQ(driver.Dnload(0, MakeImage(1024)).end, TransferEnd::Ok);
    EXPECT_EQ(driver.GetStatus().state, DfuState::DnBusy);
    driver.Pass(299);
    EXPECT_EQ(driver.GetStatus().state, DfuState::DnBusy);
    driver.Pass(1);
    EXPECT_EQ(driver.GetStatus().state, DfuState::DnloadIdle);
}

// A device that writes a block for a while, in a download that the host waits 5 s for.
CameraSettings Deaf(std::uint32_t blockMs, bool isBusyFirst) {
    return With(
        [isBusyFirst](DfuTraits& t) {
            t.isDeafWhileWriting = true;
            t.isBusyFirst = isBusyFirst;
        },
        {.blockMs = blockMs, .timeoutMs = 5000});
}

TEST(DfuTraits, AnswersWhenItHasWritten) {
    CameraDriver driver = InDfuMode(Deaf(5000, false));
    EXPECT_EQ(driver.Dnload(0, MakeImage(1024)).tookMs, 0U);
    Bytes status(6);
    const TransferResult result = driver.Request(DfuRequest::GetStatus, 0, status);
    EXPECT_EQ(result.end, TransferEnd::Ok);
    EXPECT_EQ(result.tookMs, 5000U);
    EXPECT_EQ(DfuState{status[4]}, DfuState::DnloadIdle);
}

TEST(DfuTraits, BeginsToWriteWhenItHasSaidThatItIsBusy) {
    CameraDriver driver = InDfuMode(Deaf(5200, true));
    driver.Dnload(0, MakeImage(1024));
    driver.Pass(1000);
    const StatusReply busy = driver.GetStatus();
    EXPECT_EQ(busy.state, DfuState::DnBusy);
    EXPECT_EQ(busy.pollMs, 5200U);
    driver.Pass(200);
    Bytes status(6);
    const TransferResult result = driver.Request(DfuRequest::GetStatus, 0, status);
    EXPECT_EQ(result.tookMs, 5000U);
    EXPECT_EQ(DfuState{status[4]}, DfuState::DnloadIdle);
}

TEST(DfuTraits, TakesTheBlockThoughTheHostHasGivenUp) {
    CameraDriver driver = InDfuMode(Deaf(7000, false));
    driver.Dnload(0, MakeImage(1024));
    Bytes status(6);
    for (const std::uint32_t tookMs : {5000U, 1800U}) {
        const TransferResult result = driver.Request(DfuRequest::GetStatus, 0, status);
        EXPECT_EQ(result.end, tookMs == 5000 ? TransferEnd::Timeout : TransferEnd::Ok);
        EXPECT_EQ(result.tookMs, tookMs);
        driver.Pass(result.tookMs + 200);
    }
    EXPECT_EQ(DfuState{status[4]}, DfuState::DnloadIdle);
    driver.Dnload(1, {});
    EXPECT_TRUE(driver.Await(DfuState::ManifestWaitReset));
    EXPECT_EQ(driver.camera.Flash(), MakeImage(1024));
}

TEST(DfuTraits, HasAnErrorWithoutAStatus) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) { t.hidesStatus = true; }));
    EXPECT_EQ(driver.Dnload(0, {}).end, TransferEnd::Stall);
    const StatusReply reply = driver.GetStatus();
    EXPECT_EQ(reply.state, DfuState::Error);
    EXPECT_EQ(reply.status, DfuStatus::Ok);
}

TEST(DfuTraits, HasAHidInterfaceInFront) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) { t.hasHidInFront = true; }));
    const Bytes configuration = driver.camera.ConfigurationDescriptor();
    const auto interfaces = driver.camera.Interfaces();
    ASSERT_EQ(interfaces.size(), 2U);
    EXPECT_EQ(configuration.size(), configuration[2]);
    EXPECT_EQ(configuration[4], 2);
    EXPECT_EQ(interfaces[0][5], 3);
    EXPECT_EQ(interfaces[1][5], 0xFE);
    EXPECT_EQ(interfaces[1][2], 1);
    // Read as a DFU functional descriptor, which it is not: wTransferSize is 8705.
    const Bytes hid(configuration.begin() + 18, configuration.begin() + 27);
    EXPECT_EQ(hid[0], 9);
    EXPECT_EQ(hid[1], 0x21);
    EXPECT_EQ(hid[5] + 256 * hid[6], 8705);
    // Requests go to the interface of DFU.
    EXPECT_EQ(driver.GetState(), DfuState{0xEE});
    SetupPacket setup{.requestType = 0xA1, .request = 5, .index = 1, .length = 1};
    std::array<std::uint8_t, 1> state{};
    EXPECT_EQ(driver.camera.ControlTransfer(setup, state, driver.nowMs).end, TransferEnd::Ok);
}

TEST(Personality, NamesEachOfItsKind) {
    for (std::size_t number = 0; number < kPersonalities.size(); ++number) {
        EXPECT_EQ(kPersonalities[number].second, static_cast<Personality>(number));
        EXPECT_EQ(InDfuMode({.personality = kPersonalities[number].second}).camera.Mode(), BusMode::Dfu);
    }
}

TEST(DfuTraits, TakesAnEmptyImageAndKeepsTheFlash) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) { t.takesEmptyImage = true; }));
    const Bytes before = driver.camera.Flash();
    EXPECT_EQ(driver.Dnload(0, {}).end, TransferEnd::Ok);
    EXPECT_TRUE(driver.Await(DfuState::ManifestWaitReset));
    EXPECT_EQ(driver.camera.Flash(), before);
}

TEST(DfuTraits, WaitsForAResetHoweverOftenItIsAsked) {
    CameraDriver driver =
        InDfuMode(With([](DfuTraits& t) { t.manifestation = DfuTraits::Manifestation::WaitsForReset; }));
    EXPECT_TRUE(driver.Download(MakeImage(1024)));
    EXPECT_TRUE(driver.Await(DfuState::ManifestWaitReset));
    for (int time = 0; time < 3; ++time) {
        driver.Pass(60'000);
        EXPECT_EQ(driver.GetStatus().state, DfuState::ManifestWaitReset);
    }
    EXPECT_EQ(driver.camera.Mode(), BusMode::Dfu);
}

TEST(DfuTraits, PutsABlockWhereItsNumberSays) {
    CameraDriver driver =
        InDfuMode(With([](DfuTraits& t) { t.addressesBlocks = true; }, {.transferSize = 100}));
    const Bytes image = MakeImage(200);
    const Bytes second(image.begin() + 100, image.end());
    EXPECT_EQ(driver.Dnload(1, second).end, TransferEnd::Ok);
    EXPECT_TRUE(driver.Await(DfuState::DnloadIdle));
    EXPECT_EQ(driver.Dnload(0, Bytes(image.begin(), image.begin() + 100)).end, TransferEnd::Ok);
    EXPECT_TRUE(driver.Await(DfuState::DnloadIdle));
    EXPECT_EQ(driver.Dnload(2, {}).end, TransferEnd::Ok);
    EXPECT_TRUE(driver.Await(DfuState::ManifestWaitReset));
    EXPECT_EQ(driver.camera.Flash(), image);
}

TEST(DfuTraits, ForgetsItsStateAtSetInterface) {
    CameraDriver driver =
        InState(DfuState::DnloadIdle,
                With([](DfuTraits& t) { t.setInterface = DfuTraits::SetInterface::ResetsState; },
                     {.blockMs = 10, .manifestMs = 10}));
    EXPECT_EQ(driver.camera.SetInterface(driver.nowMs).end, TransferEnd::Ok);
    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
}

TEST(DfuTraits, RefusesOrIgnoresSetInterface) {
    CameraDriver refusing =
        InDfuMode(With([](DfuTraits& t) { t.setInterface = DfuTraits::SetInterface::Stalls; }));
    EXPECT_EQ(refusing.camera.SetInterface(refusing.nowMs).end, TransferEnd::Stall);
    EXPECT_EQ(refusing.camera.State(), DfuState::DfuIdle);
    CameraDriver ignoring = InState(DfuState::DnloadIdle, {.blockMs = 10, .manifestMs = 10});
    EXPECT_EQ(ignoring.camera.SetInterface(ignoring.nowMs).end, TransferEnd::Ok);
    EXPECT_EQ(ignoring.camera.State(), DfuState::DnloadIdle);
    EXPECT_EQ(Running().camera.SetInterface(5000).end, TransferEnd::Stall);
    EXPECT_EQ(CameraDriver().camera.SetInterface(5000).end, TransferEnd::Disconnected);
}

}  // namespace
}  // namespace lab::test
