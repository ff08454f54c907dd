#include "camera/KV400UpdatableDeviceFactory.h"

#include "camera/ExtensionUnitKsControl.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeMediaFoundation.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using Microsoft::WRL::ComPtr;
using test_support::FakeCamera;
using test_support::FakeClock;
using test_support::FakeMediaFoundation;

class KV400UpdatableDeviceFactoryTest : public ::testing::Test {
  protected:
    std::shared_ptr<ICameraDevice> Create(FakeCamera& source) {
        return factory_.Create(ComPtr<IMFActivate>(source.ListedActivation()));
    }

    FakeClock clock_;
    FakeMediaFoundation mediaFoundation_;
    KV400UpdatableDeviceFactory factory_;
};

TEST_F(KV400UpdatableDeviceFactoryTest, MakesAnOpenedUpdatableCamera) {
    FakeCamera& source = mediaFoundation_.AddCamera(L"\\\\?\\camera", L"Front Camera");
    source.Firmware().SetVersion(5, 10, 2, 0);

    auto camera = Create(source);

    ASSERT_NE(camera, nullptr);
    EXPECT_EQ(camera.use_count(), 1);
    EXPECT_TRUE(camera->IsUpdatable());
    EXPECT_EQ(camera->GetFriendlyName(), L"Front Camera");
    EXPECT_EQ(camera->GetFirmwareVersion(), L"5.10.2.0");
    EXPECT_EQ(source.ListedActivationReferences(), 0);
    camera.reset();
    EXPECT_EQ(mediaFoundation_.References(), 0);
    EXPECT_EQ(source.Shutdowns(), 1);
}

TEST_F(KV400UpdatableDeviceFactoryTest, MakesNothingOfACameraWithoutTheExtensionUnit) {
    FakeCamera& source = mediaFoundation_.AddPlainCamera(L"\\\\?\\camera");

    EXPECT_EQ(Create(source), nullptr);

    EXPECT_EQ(mediaFoundation_.References(), 0);
    EXPECT_EQ(source.Shutdowns(), 1) << "the dropped camera had its source activated";
    EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 0u);
}

TEST_F(KV400UpdatableDeviceFactoryTest, MakesNothingOfASourceThatDoesNotOpen) {
    FakeCamera& source = mediaFoundation_.AddCamera(L"\\\\?\\camera");
    source.results.symbolicLink = E_ACCESSDENIED;

    EXPECT_EQ(Create(source), nullptr);

    EXPECT_EQ(mediaFoundation_.References(), 0);
}

TEST_F(KV400UpdatableDeviceFactoryTest, MakesACameraThatDoesNotTellItsVersion) {
    FakeCamera& source = mediaFoundation_.AddCamera(L"\\\\?\\camera");
    source.Firmware().SetReadResult(E_FAIL);

    const auto camera = Create(source);

    ASSERT_NE(camera, nullptr);
    EXPECT_EQ(camera->GetFirmwareVersion(), L"0.0.0.0");
}

}  // namespace
