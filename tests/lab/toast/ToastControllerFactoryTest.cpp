#include "lab/toast/ToastControllerFactory.h"

#include <ocidl.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "VeyraCameraToast.h"

namespace lab::toast {
namespace {

using Microsoft::WRL::ComPtr;
using namespace std::chrono_literals;

class ToastControllerFactoryTest : public testing::Test {
  protected:
    // True when neither an object nor a lock holds the server any more, at the latest after the patience.
    bool IsReleasedWithin(std::chrono::milliseconds patience) {
        auto released = std::async(std::launch::async, [this] { parts_->lifetime->WaitUntilReleased(); });
        const bool inTime = released.wait_for(patience) == std::future_status::ready;
        if (!inTime) {
            parts_->lifetime->LeaveNow();
        }
        return inTime;
    }

    ComPtr<IToastCntr> MakeController() {
        ComPtr<IToastCntr> controller;
        EXPECT_EQ(factory_->CreateInstance(nullptr, __uuidof(IToastCntr), &controller), S_OK);
        return controller;
    }

    const std::shared_ptr<ServerParts> parts_ = std::make_shared<ServerParts>(nullptr);
    const ComPtr<IClassFactory> factory_ = new ToastControllerFactory(parts_);
};

TEST_F(ToastControllerFactoryTest, DoesNotHoldTheServerItself) {
    EXPECT_TRUE(IsReleasedWithin(20s));
}

TEST_F(ToastControllerFactoryTest, MakesObjectsThatHoldTheServer) {
    const ComPtr<IToastCntr> controller = MakeController();
    EXPECT_FALSE(IsReleasedWithin(300ms));
}

TEST_F(ToastControllerFactoryTest, MakesObjectsThatLetGoOfTheServerWithTheirLastReference) {
    ComPtr<IToastCntr> controller = MakeController();
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(controller.As(&container), S_OK);
    ComPtr<IConnectionPoint> point;
    ASSERT_EQ(container->FindConnectionPoint(__uuidof(IToastCntrEvents), &point), S_OK);
    controller.Reset();
    container.Reset();
    EXPECT_EQ(point.Reset(), 0u);
    EXPECT_TRUE(IsReleasedWithin(20s));
}

TEST_F(ToastControllerFactoryTest, RefusesEveryClientWhenAScenarioWantsIt) {
    parts_->refusesActivation = true;
    ComPtr<IToastCntr> controller;
    EXPECT_EQ(factory_->CreateInstance(nullptr, __uuidof(IToastCntr), &controller), E_ACCESSDENIED);
    EXPECT_EQ(controller.Get(), nullptr);
    EXPECT_TRUE(IsReleasedWithin(20s));
}

TEST_F(ToastControllerFactoryTest, LetsGoOfAnObjectThatWasAskedForAForeignInterface) {
    ComPtr<IToastCntr> controller;
    EXPECT_EQ(factory_->CreateInstance(nullptr, __uuidof(IPersist), &controller), E_NOINTERFACE);
    EXPECT_EQ(controller.Get(), nullptr);
    EXPECT_TRUE(IsReleasedWithin(20s));
}

TEST_F(ToastControllerFactoryTest, MakesNoAggregatedObject) {
    ComPtr<IUnknown> object;
    EXPECT_EQ(factory_->CreateInstance(factory_.Get(), __uuidof(IUnknown), &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object.Get(), nullptr);
}

TEST_F(ToastControllerFactoryTest, LocksTheServer) {
    EXPECT_EQ(factory_->LockServer(TRUE), S_OK);
    EXPECT_FALSE(IsReleasedWithin(300ms));
}

TEST_F(ToastControllerFactoryTest, UnlocksTheServer) {
    EXPECT_EQ(factory_->LockServer(TRUE), S_OK);
    EXPECT_EQ(factory_->LockServer(FALSE), S_OK);
    EXPECT_TRUE(IsReleasedWithin(20s));
}

// The service finds the one object under both of its interfaces.
TEST_F(ToastControllerFactoryTest, MakesObjectsWithOneIdentity) {
    ComPtr<IToastCntr> controller = MakeController();
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(controller.As(&container), S_OK);
    ComPtr<IUnknown> first;
    ComPtr<IUnknown> second;
    ASSERT_EQ(controller->QueryInterface(__uuidof(IUnknown), &first), S_OK);
    ASSERT_EQ(container->QueryInterface(__uuidof(IUnknown), &second), S_OK);
    EXPECT_EQ(first.Get(), second.Get());
    ComPtr<IPersist> foreign;
    EXPECT_EQ(controller.As(&foreign), E_NOINTERFACE);
}

}  // namespace
}  // namespace lab::toast
