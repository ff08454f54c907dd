#include "camera/CameraDevicesFactory.h"

#include "tests/support/FakeClock.h"
#include "tests/support/FakeMediaFoundation.h"
#include "tests/support/ImportRedirect.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using test_support::FakeCamera;
using test_support::FakeClock;
using test_support::FakeMediaFoundation;

constexpr HRESULT kDeviceGone = static_cast<HRESULT>(0x8007048F);

constexpr const char* kMadeAttributes = "MFCreateAttributes(1)";
constexpr const char* kSetType =
    "SetGUID({C60AC5FE-252A-478F-A0EF-BC8FA5F7CAD3}, {8AC3587A-4AE7-42D8-99E0-0A6013EEF90F})";
constexpr const char* kSetCategory =
    "SetGUID({77F0AE69-C3BD-4509-941D-467E4D24899E}, {24E552D7-6523-47F7-A647-D3465BF1F5CA})";
constexpr const char* kListedSensorCameras = "MFEnumDeviceSources(2 attributes)";
constexpr const char* kListedVideoSources = "MFEnumDeviceSources(1 attributes)";

HRESULT WINAPI GiveAnEmptyEntry(IMFAttributes*, IMFActivate*** sources, UINT32* count) {
    *sources = static_cast<IMFActivate**>(CoTaskMemAlloc(sizeof(IMFActivate*)));
    **sources = nullptr;
    *count = 1;
    return S_OK;
}

class CameraDevicesFactoryTest : public ::testing::Test {
  protected:
    ~CameraDevicesFactoryTest() override {
        cameras_.clear();
        EXPECT_EQ(mediaFoundation_.References(), 0);
        EXPECT_EQ(mediaFoundation_.OutstandingBlocks(), 0u);
    }

    void Enumerate() { cameras_ = factory_->Enumerate(); }

    std::vector<std::wstring> Names() const {
        std::vector<std::wstring> names;
        std::transform(cameras_.begin(), cameras_.end(), std::back_inserter(names),
                       [](const auto& camera) { return camera->GetFriendlyName(); });
        return names;
    }
    std::vector<std::string> Journal() { return mediaFoundation_.Journal().Lines(); }

    FakeClock clock_;
    FakeMediaFoundation mediaFoundation_;
    std::ostringstream log_;
    std::optional<CameraDevicesFactory> factory_{&log_};
    std::vector<std::shared_ptr<ICameraDevice>> cameras_;
};

TEST_F(CameraDevicesFactoryTest, FindsNothingWithoutACamera) {
    Enumerate();

    EXPECT_TRUE(cameras_.empty());
}

TEST_F(CameraDevicesFactoryTest, LeavesOutAnEntryWithoutAnActivationObject) {
    const test_support::ImportRedirect enumeration("MFEnumDeviceSources", &GiveAnEmptyEntry);

    Enumerate();

    EXPECT_TRUE(cameras_.empty());
}

TEST_F(CameraDevicesFactoryTest, AsksForSensorCamerasFirstThenForEveryVideoSource) {
    Enumerate();

    EXPECT_EQ(Journal(),
              (std::vector<std::string>{kMadeAttributes, kSetType, kSetCategory, kListedSensorCameras,
                                        kMadeAttributes, kSetType, kListedVideoSources}));
}

TEST_F(CameraDevicesFactoryTest, ListsACameraOncePerWayInTheOrderFound) {
    mediaFoundation_.AddCamera(L"\\\\?\\a", L"sensor").isVideoCapture = false;
    mediaFoundation_.AddCamera(L"\\\\?\\b", L"both");
    mediaFoundation_.AddPlainCamera(L"\\\\?\\c", L"capture").isSensorCamera = false;

    Enumerate();

    EXPECT_EQ(Names(), (std::vector<std::wstring>{L"sensor", L"both", L"both", L"capture"}));
    EXPECT_NE(cameras_[1], cameras_[2]);
}

TEST_F(CameraDevicesFactoryTest, MakesAnUpdatableCameraOfOneWithTheExtensionUnit) {
    FakeCamera& source = mediaFoundation_.AddCamera(L"\\\\?\\a", L"Front Camera");
    source.isVideoCapture = false;
    source.Firmware().SetVersion(5, 10, 3, 0);

    Enumerate();

    ASSERT_EQ(cameras_.size(), 1u);
    EXPECT_TRUE(cameras_[0]->IsUpdatable());
    EXPECT_EQ(cameras_[0]->GetDescription(true),
              L"Front Camera (FW Version: 5.10.3.0), Symbolic link: \\\\?\\a");
}

TEST_F(CameraDevicesFactoryTest, MakesAPlainCameraOfOneWithoutTheExtensionUnit) {
    mediaFoundation_.AddPlainCamera(L"\\\\?\\a", L"Some Camera").isVideoCapture = false;

    Enumerate();

    ASSERT_EQ(cameras_.size(), 1u);
    EXPECT_FALSE(cameras_[0]->IsUpdatable());
    EXPECT_EQ(cameras_[0]->GetFirmwareVersion(), L"No FW version");
    EXPECT_EQ(cameras_[0]->GetDescription(true), L"Some Camera, Symbolic link: \\\\?\\a");
}

TEST_F(CameraDevicesFactoryTest, OffersASourceToThePlainFactoryOnlyWhenTheUpdatableOneDoesNotTakeIt) {
    mediaFoundation_.AddCamera(L"\\\\?\\a").isVideoCapture = false;

    Enumerate();

    const auto journal = Journal();
    EXPECT_EQ(std::count(journal.begin(), journal.end(), "MFCreateDeviceSourceActivate(2 attributes)"), 1);
}

// The attempt of the updatable camera is shut down and gone before the plain one opens the source again.
TEST_F(CameraDevicesFactoryTest, DropsTheUpdatableAttemptBeforeThePlainOne) {
    mediaFoundation_.AddPlainCamera(L"\\\\?\\a").isVideoCapture = false;

    Enumerate();

    std::vector<std::string> road;
    for (const std::string& line : Journal()) {
        if (line.starts_with("own activation") || line.starts_with("source Shut")) {
            road.push_back(line);
        }
    }
    EXPECT_EQ(road, (std::vector<std::string>{
                        "own activation ActivateObject({279A808D-AEC7-40C8-9C6B-A6B492C78A66})",
                        "source Shutdown",
                        "own activation released",
                        "own activation ActivateObject({279A808D-AEC7-40C8-9C6B-A6B492C78A66})",
                    }));
}

TEST_F(CameraDevicesFactoryTest, SkipsASourceThatCannotBeOpenedWithoutAWord) {
    mediaFoundation_.AddCamera(L"\\\\?\\a", L"a").isVideoCapture = false;
    mediaFoundation_.AddCamera(L"\\\\?\\b", L"b").results.activate = kDeviceGone;
    mediaFoundation_.AddCamera(L"\\\\?\\c", L"c").isVideoCapture = false;

    Enumerate();

    EXPECT_EQ(Names(), (std::vector<std::wstring>{L"a", L"c"}));
    EXPECT_EQ(log_.str(), "");
}

TEST_F(CameraDevicesFactoryTest, ReleasesEverythingThatItDoesNotHandOut) {
    FakeCamera& source = mediaFoundation_.AddCamera(L"\\\\?\\a");
    FakeCamera& plain = mediaFoundation_.AddPlainCamera(L"\\\\?\\b");

    Enumerate();

    ASSERT_EQ(cameras_.size(), 4u);
    EXPECT_EQ(source.ListedActivationReferences(), 0);
    EXPECT_EQ(plain.ListedActivationReferences(), 0);
    EXPECT_EQ(mediaFoundation_.AttributeStores(), 0);
    EXPECT_EQ(mediaFoundation_.OutstandingBlocks(), 0u);
    EXPECT_EQ(source.SourceReferences(), 2);
    EXPECT_EQ(plain.SourceReferences(), 2);
}

TEST_F(CameraDevicesFactoryTest, StopsWhenTheFirstAttributesCannotBeMade) {
    mediaFoundation_.AddCamera(L"\\\\?\\a");
    mediaFoundation_.FailCreateAttributes(1, E_OUTOFMEMORY);

    Enumerate();

    EXPECT_TRUE(cameras_.empty());
    EXPECT_EQ(Journal(), (std::vector<std::string>{kMadeAttributes}));
}

TEST_F(CameraDevicesFactoryTest, StopsWhenTheFirstListingFails) {
    mediaFoundation_.AddCamera(L"\\\\?\\a");
    mediaFoundation_.SetEnumerationResult(1, kDeviceGone);

    Enumerate();

    EXPECT_TRUE(cameras_.empty());
    EXPECT_EQ(Journal(),
              (std::vector<std::string>{kMadeAttributes, kSetType, kSetCategory, kListedSensorCameras}));
    EXPECT_EQ(mediaFoundation_.References(), 0);
}

TEST_F(CameraDevicesFactoryTest, KeepsWhatItFoundWhenTheSecondAttributesCannotBeMade) {
    mediaFoundation_.AddCamera(L"\\\\?\\a", L"a");
    mediaFoundation_.FailCreateAttributes(3, E_OUTOFMEMORY);  // the second are the opened camera's own

    Enumerate();

    EXPECT_EQ(Names(), (std::vector<std::wstring>{L"a"}));
    EXPECT_EQ(Journal().back(), kMadeAttributes);
}

TEST_F(CameraDevicesFactoryTest, KeepsWhatItFoundWhenTheSecondListingFails) {
    mediaFoundation_.AddCamera(L"\\\\?\\a", L"a");
    mediaFoundation_.SetEnumerationResult(2, kDeviceGone);

    Enumerate();

    EXPECT_EQ(Names(), (std::vector<std::wstring>{L"a"}));
    EXPECT_EQ(Journal().back(), kListedVideoSources);
}

TEST_F(CameraDevicesFactoryTest, DoesNotLookAtTheResultsOfSetGuid) {
    mediaFoundation_.SetSetGuidResult(E_OUTOFMEMORY);
    mediaFoundation_.SetEnumerationResult(1, S_OK);

    Enumerate();

    EXPECT_EQ(Journal(), (std::vector<std::string>{kMadeAttributes, kSetType, kSetCategory,
                                                   "MFEnumDeviceSources(0 attributes)", kMadeAttributes,
                                                   kSetType, "MFEnumDeviceSources(0 attributes)"}));
}

TEST_F(CameraDevicesFactoryTest, HandsItsLogStreamToEveryCamera) {
    mediaFoundation_.AddCamera(L"\\\\?\\a");
    mediaFoundation_.AddPlainCamera(L"\\\\?\\b");

    Enumerate();

    ASSERT_EQ(cameras_.size(), 4u);
    for (const auto& camera : cameras_) {
        EXPECT_EQ(camera->LogStream(), &log_);
    }
}

TEST_F(CameraDevicesFactoryTest, MakesCamerasWithoutALogStream) {
    mediaFoundation_.AddCamera(L"\\\\?\\a");
    factory_.emplace(nullptr);

    Enumerate();

    ASSERT_EQ(cameras_.size(), 2u);
    EXPECT_EQ(cameras_[0]->LogStream(), nullptr);
}

TEST_F(CameraDevicesFactoryTest, LooksAnewEachTimeAndItsCamerasOutliveIt) {
    mediaFoundation_.AddCamera(L"\\\\?\\a", L"a").isVideoCapture = false;
    Enumerate();
    const auto first = cameras_;
    Enumerate();
    mediaFoundation_.UnplugAll();
    EXPECT_TRUE(factory_->Enumerate().empty());

    factory_.reset();

    ASSERT_EQ(cameras_.size(), 1u);
    EXPECT_NE(cameras_, first);
    EXPECT_EQ(cameras_[0].use_count(), 1);
    EXPECT_EQ(cameras_[0]->GetFriendlyName(), L"a");
}

}  // namespace
