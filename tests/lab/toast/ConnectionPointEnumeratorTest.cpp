#include <gtest/gtest.h>

#include "VeyraCameraToast.h"
#include "lab/toast/ServerParts.h"
#include "lab/toast/ToastController.h"

namespace lab::toast {
namespace {

using Microsoft::WRL::ComPtr;

class ConnectionPointEnumeratorTest : public testing::Test {
  protected:
    ConnectionPointEnumeratorTest() {
        controller_ = new ToastController(std::make_shared<ServerParts>(nullptr));
        EXPECT_EQ(controller_->FindConnectionPoint(__uuidof(IToastCntrEvents), &point_), S_OK);
        EXPECT_EQ(controller_->EnumConnectionPoints(&enumerator_), S_OK);
    }

    ComPtr<ToastController> controller_;
    ComPtr<IConnectionPoint> point_;
    ComPtr<IEnumConnectionPoints> enumerator_;
};

TEST_F(ConnectionPointEnumeratorTest, GivesTheOneConnectionPointOnce) {
    ComPtr<IConnectionPoint> found;
    ULONG fetched = 9;
    EXPECT_EQ(enumerator_->Next(1, &found, &fetched), S_OK);
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(found.Get(), point_.Get());
    EXPECT_EQ(enumerator_->Next(1, &found, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 0u);
}

TEST_F(ConnectionPointEnumeratorTest, GivesFewerThanAskedForWithS_FALSE) {
    IConnectionPoint* found[2] = {};
    ULONG fetched = 9;
    EXPECT_EQ(enumerator_->Next(2, found, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    ASSERT_EQ(found[0], point_.Get());
    found[0]->Release();
}

TEST_F(ConnectionPointEnumeratorTest, NeedsTheCountBackUnlessOneIsAskedFor) {
    IConnectionPoint* found[2] = {};
    EXPECT_EQ(enumerator_->Next(2, found, nullptr), E_POINTER);
    EXPECT_EQ(enumerator_->Next(1, nullptr, nullptr), E_POINTER);
}

TEST_F(ConnectionPointEnumeratorTest, SkipsAndGoesBackToTheStart) {
    EXPECT_EQ(enumerator_->Skip(0), S_OK);
    EXPECT_EQ(enumerator_->Skip(1), S_OK);
    EXPECT_EQ(enumerator_->Skip(1), S_FALSE);
    EXPECT_EQ(enumerator_->Reset(), S_OK);
    ComPtr<IConnectionPoint> found;
    EXPECT_EQ(enumerator_->Next(1, &found, nullptr), S_OK);
}

TEST_F(ConnectionPointEnumeratorTest, ClonesItsPosition) {
    ASSERT_EQ(enumerator_->Skip(1), S_OK);
    ComPtr<IEnumConnectionPoints> clone;
    ASSERT_EQ(enumerator_->Clone(&clone), S_OK);
    ASSERT_EQ(enumerator_->Reset(), S_OK);
    ComPtr<IConnectionPoint> found;
    EXPECT_EQ(clone->Next(1, &found, nullptr), S_FALSE);
    EXPECT_EQ(enumerator_->Next(1, &found, nullptr), S_OK);
}

}  // namespace
}  // namespace lab::toast
