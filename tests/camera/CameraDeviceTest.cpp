#include "camera/CameraDevice.h"

#include "tests/support/FakeMediaFoundation.h"
#include "tests/support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using Microsoft::WRL::ComPtr;
using test_support::FakeCamera;
using test_support::FakeMediaFoundation;
using test_support::VirtualSlot;

constexpr HRESULT kDeviceGone = static_cast<HRESULT>(0x8007048F);

constexpr const char* kReadLink =
    "listed activation GetAllocatedString({58F0AAD8-22BF-4F8A-BB3D-D2C4978C6E2F})";
constexpr const char* kReadName =
    "listed activation GetAllocatedString({60D0E559-52F8-4FA2-BBCE-ACDB34A8EC01})";
constexpr const char* kMadeAttributes = "MFCreateAttributes(2)";
constexpr const char* kSetType =
    "SetGUID({C60AC5FE-252A-478F-A0EF-BC8FA5F7CAD3}, {8AC3587A-4AE7-42D8-99E0-0A6013EEF90F})";
constexpr const char* kSetLink = "SetString({58F0AAD8-22BF-4F8A-BB3D-D2C4978C6E2F}, \"\\\\?\\usb#Camera\")";
constexpr const char* kMadeActivation = "MFCreateDeviceSourceActivate(2 attributes)";
constexpr const char* kActivated = "own activation ActivateObject({279A808D-AEC7-40C8-9C6B-A6B492C78A66})";
constexpr const char* kListedReleased = "listed activation released";

TEST(ICameraDevice, HasItsOperationsInTheirSlots) {
    EXPECT_EQ(VirtualSlot(&ICameraDevice::IsUpdatable), 2u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::UpdateFirmware), 3u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::EnterDfuMode), 4u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::SetDfuModeDisabled), 5u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::SetDfuModeAuto), 6u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::SetDfuModeServiceControlled), 7u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::GetFriendlyName), 8u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::GetSymbolicLink), 9u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::GetFirmwareVersion), 10u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::GetDescription), 11u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::QueryA), 12u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::QueryB), 13u);
    EXPECT_EQ(VirtualSlot(&ICameraDevice::Open), 14u);
}

TEST(CameraDevice, IsUnknownUntilOpened) {
    const CameraDevice camera;

    EXPECT_EQ(camera.GetFriendlyName(), L"Unknown");
    EXPECT_EQ(camera.GetSymbolicLink(), L"Unknown");
    EXPECT_EQ(camera.LogStream(), nullptr);
}

TEST(CameraDevice, IsNotUpdatable) {
    EXPECT_FALSE(CameraDevice().IsUpdatable());
}

TEST(CameraDevice, RefusesToUpdate) {
    CameraDevice camera;

    EXPECT_EQ(camera.UpdateFirmware(L"C:\\image.bin"), static_cast<HRESULT>(0x80004005));
    EXPECT_EQ(camera.UpdateFirmware(nullptr), static_cast<HRESULT>(0x80004005));
}

TEST(CameraDevice, RefusesDfuMode) {
    EXPECT_EQ(CameraDevice().EnterDfuMode(), static_cast<HRESULT>(0x80004005));
}

TEST(CameraDevice, RefusesEveryUpdateMode) {
    CameraDevice camera;

    EXPECT_EQ(camera.SetDfuModeDisabled(), static_cast<HRESULT>(0x80004005));
    EXPECT_EQ(camera.SetDfuModeAuto(), static_cast<HRESULT>(0x80004005));
    EXPECT_EQ(camera.SetDfuModeServiceControlled(), static_cast<HRESULT>(0x80004005));
}

TEST(CameraDevice, HasNoFirmwareVersion) {
    EXPECT_EQ(CameraDevice().GetFirmwareVersion(), L"No FW version");
}

TEST(CameraDevice, AnswersTheTwoQueriesThatNobodyCalls) {
    EXPECT_TRUE(CameraDevice().QueryA());
    EXPECT_FALSE(CameraDevice().QueryB());
}

class CameraDeviceOpen : public ::testing::Test {
  protected:
    ~CameraDeviceOpen() override {
        camera_.reset();
        EXPECT_EQ(mediaFoundation_.References(), 0);
        EXPECT_EQ(mediaFoundation_.OutstandingBlocks(), 0u);
    }

    HRESULT Open() { return camera_->Open(ComPtr<IMFActivate>(source_.ListedActivation())); }
    std::vector<std::string> Journal() { return mediaFoundation_.Journal().Lines(); }

    FakeMediaFoundation mediaFoundation_;
    FakeCamera& source_ = mediaFoundation_.AddCamera(L"\\\\?\\usb#Camera", L"Front Camera");
    std::unique_ptr<ICameraDevice> camera_ = std::make_unique<CameraDevice>();
};

TEST_F(CameraDeviceOpen, ReadsLinkAndNameAndActivatesItsOwnSource) {
    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(Journal(), (std::vector<std::string>{kReadLink, kReadName, kMadeAttributes, kSetType, kSetLink,
                                                   kMadeActivation, kActivated, kListedReleased}));
    EXPECT_EQ(camera_->GetSymbolicLink(), L"\\\\?\\usb#Camera");
    EXPECT_EQ(camera_->GetFriendlyName(), L"Front Camera");
}

TEST_F(CameraDeviceOpen, KeepsItsOwnActivationAndTheSourceAndNothingElse) {
    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(source_.ListedActivationReferences(), 0);
    EXPECT_EQ(source_.OwnActivationReferences(), 1);
    EXPECT_EQ(source_.SourceReferences(), 1);
    EXPECT_EQ(mediaFoundation_.AttributeStores(), 0);
    EXPECT_EQ(mediaFoundation_.OutstandingBlocks(), 0u);
}

TEST_F(CameraDeviceOpen, IsFollowedByShutdownBeforeSourceAndActivationAreReleased) {
    EXPECT_EQ(Open(), S_OK);
    mediaFoundation_.Journal().Forget();

    camera_.reset();

    EXPECT_EQ(Journal(),
              (std::vector<std::string>{"source Shutdown", "source released", "own activation released"}));
}

TEST_F(CameraDeviceOpen, IsNotFollowedByShutdownWhenItNeverHappened) {
    camera_.reset();

    EXPECT_TRUE(Journal().empty());
}

TEST_F(CameraDeviceOpen, TakesAnySuccessOfTheActivation) {
    source_.results.activate = S_FALSE;

    EXPECT_EQ(Open(), S_OK);
}

TEST_F(CameraDeviceOpen, LeavesTextsAloneThatAreNotGiven) {
    source_.results.givesTexts = false;

    EXPECT_NE(Open(), S_OK) << "no source has the link \"Unknown\"";

    EXPECT_EQ(camera_->GetSymbolicLink(), L"Unknown");
    EXPECT_EQ(camera_->GetFriendlyName(), L"Unknown");
}

TEST_F(CameraDeviceOpen, TakesAnEmptyNameAndAVeryLongLink) {
    const std::wstring link = L"\\\\?\\" + std::wstring(32763, L'x');
    FakeCamera& longSource = mediaFoundation_.AddCamera(link, L"");

    EXPECT_EQ(camera_->Open(ComPtr<IMFActivate>(longSource.ListedActivation())), S_OK);

    EXPECT_EQ(camera_->GetSymbolicLink(), link);
    EXPECT_EQ(camera_->GetFriendlyName(), L"");
}

TEST_F(CameraDeviceOpen, MakesADescriptionOfNameAndLinkWithoutAVersion) {
    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(camera_->GetDescription(false), L"Front Camera");
    EXPECT_EQ(camera_->GetDescription(true), L"Front Camera, Symbolic link: \\\\?\\usb#Camera");
}

struct FailedStep {
    const char* name;
    std::function<void(FakeMediaFoundation&, FakeCamera&)> spoil;
    HRESULT result;
    std::size_t callsMade;  // of those that a successful open makes, in their order
    const wchar_t* link;
    const wchar_t* friendlyName;
};

std::ostream& operator<<(std::ostream& stream, const FailedStep& step) {
    return stream << step.name;
}

class CameraDeviceOpenFailure : public CameraDeviceOpen, public ::testing::WithParamInterface<FailedStep> {};

TEST_P(CameraDeviceOpenFailure, EndsTheOpenWithItsCode) {
    const std::vector<std::string> allCalls{kReadLink, kReadName,       kMadeAttributes, kSetType,
                                            kSetLink,  kMadeActivation, kActivated};
    GetParam().spoil(mediaFoundation_, source_);

    EXPECT_EQ(Open(), GetParam().result);

    std::vector<std::string> expected(allCalls.begin(),
                                      allCalls.begin() + static_cast<std::ptrdiff_t>(GetParam().callsMade));
    expected.push_back(kListedReleased);
    EXPECT_EQ(Journal(), expected);
    EXPECT_EQ(camera_->GetSymbolicLink(), GetParam().link);
    EXPECT_EQ(camera_->GetFriendlyName(), GetParam().friendlyName);
    EXPECT_EQ(mediaFoundation_.AttributeStores(), 0);
    EXPECT_EQ(source_.ListedActivationReferences(), 0);
    EXPECT_EQ(source_.SourceReferences(), 0);
}

// What was not activated is not shut down either.
TEST_P(CameraDeviceOpenFailure, LeavesNothingToShutDown) {
    GetParam().spoil(mediaFoundation_, source_);
    EXPECT_EQ(Open(), GetParam().result);

    camera_.reset();

    EXPECT_EQ(source_.Shutdowns(), 0);
    EXPECT_EQ(mediaFoundation_.References(), 0);
}

constexpr const wchar_t* kLink = L"\\\\?\\usb#Camera";

INSTANTIATE_TEST_SUITE_P(
    , CameraDeviceOpenFailure,
    ::testing::Values(
        FailedStep{"OfTheLink", [](auto&, auto& source) { source.results.symbolicLink = kDeviceGone; },
                   kDeviceGone, 1, L"Unknown", L"Unknown"},
        FailedStep{"OfTheName", [](auto&, auto& source) { source.results.friendlyName = kDeviceGone; },
                   kDeviceGone, 2, kLink, L"Unknown"},
        FailedStep{"OfTheAttributes",
                   [](auto& system, auto&) { system.FailCreateAttributes(1, E_OUTOFMEMORY); }, E_OUTOFMEMORY,
                   3, kLink, L"Front Camera"},
        FailedStep{"OfTheSourceType", [](auto& system, auto&) { system.SetSetGuidResult(E_OUTOFMEMORY); },
                   E_OUTOFMEMORY, 4, kLink, L"Front Camera"},
        FailedStep{"OfTheLinkAttribute",
                   [](auto& system, auto&) { system.SetSetStringResult(E_OUTOFMEMORY); }, E_OUTOFMEMORY, 5,
                   kLink, L"Front Camera"},
        FailedStep{"OfTheOwnActivation",
                   [](auto&, auto& source) { source.results.ownActivation = kDeviceGone; },
                   static_cast<HRESULT>(0x80004005), 6, kLink, L"Front Camera"},
        FailedStep{"OfAnOwnActivationThatIsNotGiven",
                   [](auto&, auto& source) { source.results.givesOwnActivation = false; },
                   static_cast<HRESULT>(0x80004005), 6, kLink, L"Front Camera"},
        FailedStep{"OfTheMediaSource", [](auto&, auto& source) { source.results.activate = kDeviceGone; },
                   kDeviceGone, 7, kLink, L"Front Camera"},
        FailedStep{"OfAMediaSourceThatIsNotGiven",
                   [](auto&, auto& source) { source.results.givesSource = false; },
                   static_cast<HRESULT>(0x80004005), 7, kLink, L"Front Camera"}),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
