#include "prompt/ToastController.h"

#include <gtest/gtest.h>

#include "tests/support/FakeActivation.h"
#include "tests/support/FakeToastController.h"

#include <string>
#include <vector>

namespace {

using test_support::FakeActivation;
using test_support::FakeToastController;

constexpr GUID kToastClass{0x20C4BEF7, 0xCA2C, 0x40F7, {0x9B, 0x2A, 0x33, 0x37, 0x8E, 0x54, 0xE6, 0x8C}};
constexpr GUID kToastInterface{0x45E679A1, 0xAE15, 0x45DC, {0x85, 0x4E, 0x13, 0xD9, 0x0F, 0xD8, 0x64, 0xC5}};
constexpr GUID kUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

class ToastController : public testing::Test {
  protected:
    FakeToastController server_;
    FakeActivation activation_{server_.Unknown()};
};

TEST_F(ToastController, IsActivatedAsALocalServerForItsUnknown) {
    IToastCntrPtr pointer;
    EXPECT_EQ(CreateToastController(pointer), S_OK);
    ASSERT_EQ(activation_.creations.size(), 1u);
    EXPECT_TRUE(IsEqualGUID(activation_.creations[0].classId, kToastClass));
    EXPECT_EQ(activation_.creations[0].outer, nullptr);
    EXPECT_EQ(activation_.creations[0].context, 4u);
    EXPECT_TRUE(IsEqualGUID(activation_.creations[0].interfaceId, kUnknown));
}

TEST_F(ToastController, IsRunAndThenAskedForItsInterface) {
    std::vector<std::string> functions;
    std::size_t queriesBeforeRun = 0;
    activation_.report = [&](const std::string& function) {
        functions.push_back(function);
        queriesBeforeRun = server_.Queries().size();
    };
    IToastCntrPtr pointer;
    ASSERT_EQ(CreateToastController(pointer), S_OK);
    EXPECT_EQ(functions, (std::vector<std::string>{"CoCreateInstance", "OleRun"}));
    EXPECT_EQ(activation_.runs, std::vector<IUnknown*>{server_.Unknown()});
    // The activation's own query is the first, and the only one before the server runs.
    EXPECT_EQ(queriesBeforeRun, 1u);
    ASSERT_EQ(server_.Queries().size(), 2u);
    EXPECT_TRUE(IsEqualGUID(server_.Queries()[1], kToastInterface));
}

TEST_F(ToastController, IsHeldByTheInterfacePointerAlone) {
    {
        IToastCntrPtr pointer;
        ASSERT_EQ(CreateToastController(pointer), S_OK);
        EXPECT_EQ(static_cast<void*>(pointer.GetInterfacePtr()), static_cast<void*>(server_.Unknown()));
        EXPECT_EQ(server_.References(), 1u);
    }
    EXPECT_EQ(server_.References(), 0u);
}

TEST_F(ToastController, GivesTheErrorOfARefusedActivationAndRunsNothing) {
    activation_.creationResult = static_cast<HRESULT>(0x80040154);  // REGDB_E_CLASSNOTREG
    IToastCntrPtr pointer;
    EXPECT_EQ(CreateToastController(pointer), static_cast<HRESULT>(0x80040154));
    EXPECT_EQ(pointer.GetInterfacePtr(), nullptr);
    EXPECT_TRUE(activation_.runs.empty());
    EXPECT_TRUE(server_.Queries().empty());
}

TEST_F(ToastController, GivesTheErrorOfTheRunAndReleasesTheServer) {
    activation_.runResult = E_FAIL;
    IToastCntrPtr pointer;
    EXPECT_EQ(CreateToastController(pointer), E_FAIL);
    EXPECT_EQ(pointer.GetInterfacePtr(), nullptr);
    EXPECT_EQ(server_.References(), 0u);
    EXPECT_EQ(server_.Queries().size(), 1u);
}

TEST_F(ToastController, GivesTheErrorOfTheQueryAndReleasesTheServer) {
    for (const HRESULT error : {E_NOINTERFACE, E_ACCESSDENIED}) {
        server_.interfaceResult = error;
        IToastCntrPtr pointer;
        EXPECT_EQ(CreateToastController(pointer), error);
        EXPECT_EQ(pointer.GetInterfacePtr(), nullptr);
        EXPECT_EQ(server_.References(), 0u);
    }
}

TEST_F(ToastController, LetsGoOfAnEarlierPointerEvenWhenItFails) {
    IToastCntrPtr pointer;
    ASSERT_EQ(CreateToastController(pointer), S_OK);
    activation_.creationResult = E_FAIL;
    EXPECT_EQ(CreateToastController(pointer), E_FAIL);
    EXPECT_EQ(pointer.GetInterfacePtr(), nullptr);
    EXPECT_EQ(server_.References(), 0u);
}

}  // namespace
