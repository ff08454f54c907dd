#include "check/CameraQuery.h"

#include "tests/support/FakeClock.h"
#include "tests/support/FakeMediaFoundation.h"

#include <gtest/gtest.h>

namespace {

using check::CamerasState;
using check::CameraState;
using check::QueryCameras;
using test_support::FakeCamera;
using test_support::FakeClock;
using test_support::FakeMediaFoundation;

constexpr HRESULT kDeviceGone = static_cast<HRESULT>(0x8007048F);

std::wstring LinkOf(const wchar_t* device, const wchar_t* interfaceClass) {
    return L"\\\\?\\usb#" + std::wstring(device) + L"#{" + interfaceClass + L"}\\global";
}
const std::wstring kSensor = LinkOf(L"vid_2f1a&pid_7e00&mi_00#6&1", L"24e552d7-6523-47f7-a647-d3465bf1f5ca");
const std::wstring kVideo = LinkOf(L"vid_2f1a&pid_7e00&mi_00#6&1", L"e5323777-f976-4f5b-9b55-b94699c46e44");
const std::wstring kForeign = LinkOf(L"vid_1234&pid_0001&mi_00#7&1", L"e5323777-f976-4f5b-9b55-b94699c46e44");

class CameraQueryTest : public ::testing::Test {
  protected:
    // Listed in one of the two ways alone.
    FakeCamera& AddSensorCamera() {
        FakeCamera& camera = mediaFoundation_.AddCamera(kSensor);
        camera.isVideoCapture = false;
        return camera;
    }
    FakeCamera& AddVideoCamera() {
        FakeCamera& camera = mediaFoundation_.AddCamera(kVideo);
        camera.isSensorCamera = false;
        return camera;
    }

    FakeMediaFoundation mediaFoundation_{FakeMediaFoundation::Platform::NotStarted};
    FakeClock clock_;
};

}  // namespace

TEST_F(CameraQueryTest, FindsNoneWhereNoneIs) {
    const CamerasState state = QueryCameras();
    EXPECT_EQ(state.mediaError, 0U);
    EXPECT_TRUE(state.cameras.empty());
    EXPECT_EQ(state.others, 0U);
}

TEST_F(CameraQueryTest, PutsTheListingsOfOneCameraTogetherAndAsksItOnce) {
    FakeCamera& sensor = AddSensorCamera();
    FakeCamera& video = AddVideoCamera();
    sensor.Firmware().SetVersion(5, 10, 2, 0);
    const CamerasState state = QueryCameras();
    ASSERT_EQ(state.cameras.size(), 1U);
    const CameraState& camera = state.cameras.front();
    EXPECT_EQ(camera.version, "5.10.2.0");
    EXPECT_EQ(camera.name, "KV400 camera");
    EXPECT_EQ(camera.device, "\\\\?\\usb#vid_2f1a&pid_7e00&mi_00#6&1");
    ASSERT_EQ(camera.listings.size(), 2U);
    EXPECT_EQ(camera.listings[0].category, "sensor camera");
    EXPECT_EQ(camera.listings[1].category, "video camera");
    EXPECT_EQ(sensor.Firmware().Commands().size(), 1U);
    EXPECT_TRUE(video.Firmware().Commands().empty());
    EXPECT_EQ(mediaFoundation_.References(), 0);
    EXPECT_EQ(mediaFoundation_.OutstandingBlocks(), 0U);
}

TEST_F(CameraQueryTest, AListingThatDoesNotOpenLeavesTheOther) {
    AddSensorCamera().results.activate = kDeviceGone;
    AddVideoCamera().Firmware().SetVersion(5, 10, 2, 0);
    const CamerasState state = QueryCameras();
    ASSERT_EQ(state.cameras.size(), 1U);
    EXPECT_EQ(state.cameras.front().openError, 0U);
    EXPECT_EQ(state.cameras.front().version, "5.10.2.0");
    EXPECT_EQ(state.cameras.front().listings.size(), 2U);
}

TEST_F(CameraQueryTest, TellsWhyACameraOfTheMakerDoesNotOpen) {
    AddVideoCamera().results.activate = kDeviceGone;
    const CamerasState state = QueryCameras();
    ASSERT_EQ(state.cameras.size(), 1U);
    EXPECT_EQ(state.cameras.front().openError, 0x8007048FU);
    EXPECT_EQ(state.cameras.front().unitError, 0U);
}

TEST_F(CameraQueryTest, TellsThatACameraOfTheMakerHasNoUnit) {
    mediaFoundation_.AddPlainCamera(kVideo).isSensorCamera = false;
    const CamerasState state = QueryCameras();
    ASSERT_EQ(state.cameras.size(), 1U);
    EXPECT_EQ(state.cameras.front().unitError, 0x80004005U);
}

TEST_F(CameraQueryTest, TellsWhyACameraDoesNotTellItsVersion) {
    AddVideoCamera().Firmware().SetReadResult(kDeviceGone);
    const CamerasState state = QueryCameras();
    ASSERT_EQ(state.cameras.size(), 1U);
    EXPECT_EQ(state.cameras.front().version, "");
    EXPECT_EQ(state.cameras.front().versionError, 0x8007048FU);
}

TEST_F(CameraQueryTest, CountsTheCamerasOfOthers) {
    // Listed in both ways.
    mediaFoundation_.AddPlainCamera(kForeign);
    const CamerasState state = QueryCameras();
    EXPECT_TRUE(state.cameras.empty());
    EXPECT_EQ(state.others, 1U);
}

// The service goes by the unit, whoever is the maker.
TEST_F(CameraQueryTest, AUnitMakesACameraOneOfTheFamily) {
    mediaFoundation_.AddCamera(kForeign).isSensorCamera = false;
    EXPECT_EQ(QueryCameras().cameras.size(), 1U);
}

TEST_F(CameraQueryTest, TellsThatMediaFoundationDoesNotStart) {
    mediaFoundation_.FailStartup(1, E_NOTIMPL);
    EXPECT_EQ(QueryCameras().mediaError, 0x80004001U);
}

TEST_F(CameraQueryTest, TellsThatMediaFoundationDoesNotListAndKeepsWhatItListedBefore) {
    AddSensorCamera();
    mediaFoundation_.SetEnumerationResult(2, E_OUTOFMEMORY);
    const CamerasState state = QueryCameras();
    EXPECT_EQ(state.mediaError, 0x8007000EU);
    EXPECT_EQ(state.cameras.size(), 1U);
}
