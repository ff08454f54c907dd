#include "lab/camera/DfuTraits.h"

#include <gtest/gtest.h>

#include "tests/lab/camera/CameraDriver.h"

#include <algorithm>
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

TEST(DfuTraits, TakesAnEmptyImageAndKeepsTheFlash) {
    CameraDriver driver = InDfuMode(With([](DfuTraits& t) { t.takesEmptyImage = true; }));
    const Bytes before = driver.camera.Flash();
    EXPECT_EQ(driver.Dnload(0, {}).end, TransferEnd::Ok);
    EXPECT_TRUE(driver.Await(DfuState::ManifestWaitReset));
    EXPECT_EQ(driver.camera.Flash(), before);
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
    EXPECT_EQ(driver.camera.SetInterface(driver.nowMs), TransferEnd::Ok);
    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
}

TEST(DfuTraits, RefusesOrIgnoresSetInterface) {
    CameraDriver refusing =
        InDfuMode(With([](DfuTraits& t) { t.setInterface = DfuTraits::SetInterface::Stalls; }));
    EXPECT_EQ(refusing.camera.SetInterface(refusing.nowMs), TransferEnd::Stall);
    EXPECT_EQ(refusing.camera.State(), DfuState::DfuIdle);
    CameraDriver ignoring = InState(DfuState::DnloadIdle, {.blockMs = 10, .manifestMs = 10});
    EXPECT_EQ(ignoring.camera.SetInterface(ignoring.nowMs), TransferEnd::Ok);
    EXPECT_EQ(ignoring.camera.State(), DfuState::DnloadIdle);
    EXPECT_EQ(Running().camera.SetInterface(5000), TransferEnd::Stall);
    EXPECT_EQ(CameraDriver().camera.SetInterface(5000), TransferEnd::Disconnected);
}

}  // namespace
}  // namespace lab::test
