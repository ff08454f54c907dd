#include "lab/toast/KeptStub.h"

#include <ocidl.h>

#include <gtest/gtest.h>

#include <memory>

#include "VeyraCameraToast.h"
#include "lab/toast/ToastControllerFactory.h"

namespace lab::toast {
namespace {

using Microsoft::WRL::ComPtr;

class KeptStubTest : public testing::Test {
  protected:
    KeptStubTest() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    ~KeptStubTest() override { CoUninitialize(); }

    // The references to the factory beside the test's own.
    ULONG OtherReferences() {
        factory_->AddRef();
        return factory_->Release() - 1;
    }

    const ComPtr<IClassFactory> factory_ = new ToastControllerFactory(std::make_shared<ServerParts>(nullptr));
};

TEST_F(KeptStubTest, HoldsTheObject) {
    EXPECT_EQ(OtherReferences(), 0u);
    EXPECT_EQ(KeepStub(__uuidof(IClassFactory), factory_.Get()), S_OK);
    EXPECT_GT(OtherReferences(), 0u);
}

TEST_F(KeptStubTest, FailsForAnInterfaceThatTheObjectDoesNotHave) {
    EXPECT_EQ(KeepStub(__uuidof(IConnectionPoint), factory_.Get()), E_NOINTERFACE);
    EXPECT_EQ(OtherReferences(), 0u);
}

}  // namespace
}  // namespace lab::toast
