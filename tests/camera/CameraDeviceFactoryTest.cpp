#include "camera/CameraDeviceFactory.h"

#include "tests/support/FakeMediaFoundation.h"
#include "tests/support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using Microsoft::WRL::ComPtr;
using test_support::FakeCamera;
using test_support::FakeMediaFoundation;
using test_support::VirtualSlot;

TEST(ICameraDeviceFactory, HasItsOperationBehindTheDestructor) {
    EXPECT_EQ(VirtualSlot(&ICameraDeviceFactory::Create), 2u);
}

TEST(CameraDeviceFactory, MakesAnOpenedPlainCamera) {
    FakeMediaFoundation mediaFoundation;
    FakeCamera& source = mediaFoundation.AddCamera(L"\\\\?\\camera", L"Front Camera");
    CameraDeviceFactory factory;

    auto camera = factory.Create(ComPtr<IMFActivate>(source.ListedActivation()));

    ASSERT_NE(camera, nullptr);
    EXPECT_EQ(camera.use_count(), 1);
    EXPECT_EQ(camera->GetFriendlyName(), L"Front Camera");
    EXPECT_EQ(camera->GetFirmwareVersion(), L"No FW version");
    EXPECT_FALSE(camera->IsUpdatable());
    EXPECT_EQ(source.ListedActivationReferences(), 0);
    camera.reset();
    EXPECT_EQ(mediaFoundation.References(), 0);
    EXPECT_EQ(source.Shutdowns(), 1);
}

TEST(CameraDeviceFactory, MakesNothingOfASourceThatDoesNotOpen) {
    FakeMediaFoundation mediaFoundation;
    FakeCamera& source = mediaFoundation.AddCamera(L"\\\\?\\camera");
    source.results.activate = E_ACCESSDENIED;
    CameraDeviceFactory factory;

    EXPECT_EQ(factory.Create(ComPtr<IMFActivate>(source.ListedActivation())), nullptr);

    EXPECT_EQ(mediaFoundation.References(), 0);
}

}  // namespace
