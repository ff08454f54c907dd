#include "prompt/CCmdTarget.h"

#include <gtest/gtest.h>

#include "tests/support/DispatchCall.h"

#include <oleauto.h>

#include <memory>
#include <vector>

namespace {

using Microsoft::WRL::ComPtr;
using test_support::CallWithNumber;

constexpr IID kMapped{0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};

// A target with two methods that record what they get.
class RecordingTarget final : public CCmdTarget {
  public:
    explicit RecordingTarget(std::vector<LONG>* record)
        : CCmdTarget({{L"First", [record](LONG value) { return Keep(record, value); }},
                      {L"Second", [record](LONG value) { return -Keep(record, value); }}},
                     {kMapped}) {}

  private:
    static LONG Keep(std::vector<LONG>* record, LONG value) {
        record->push_back(value);
        return value;
    }
};

class CCmdTargetTest : public testing::Test {
  protected:
    [[nodiscard]] ComPtr<IDispatch> Dispatch() const {
        ComPtr<IDispatch> dispatch;
        target_->GetControllingUnknown()->QueryInterface(IID_IDispatch,
                                                         reinterpret_cast<void**>(dispatch.GetAddressOf()));
        return dispatch;
    }

    std::vector<LONG> record_;
    std::unique_ptr<RecordingTarget> target_ = std::make_unique<RecordingTarget>(&record_);
};

TEST_F(CCmdTargetTest, HasOneIdentity) {
    EXPECT_EQ(target_->GetControllingUnknown().Get(), target_->GetControllingUnknown().Get());
    ComPtr<IUnknown> unknown;
    ASSERT_EQ(Dispatch()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(unknown.GetAddressOf())),
              S_OK);
    EXPECT_EQ(unknown.Get(), target_->GetControllingUnknown().Get());
}

TEST_F(CCmdTargetTest, CallsItsMethodsByTheirPositionFromOne) {
    VARIANT result;
    VariantInit(&result);
    EXPECT_EQ(CallWithNumber(*Dispatch().Get(), 1, 7, &result), S_OK);
    EXPECT_EQ(V_I4(&result), 7);
    EXPECT_EQ(CallWithNumber(*Dispatch().Get(), 2, 8, &result), S_OK);
    EXPECT_EQ(V_I4(&result), -8);
    EXPECT_EQ(record_, (std::vector<LONG>{7, 8}));
}

TEST_F(CCmdTargetTest, ReleasesItsDispatchAtItsEnd) {
    ComPtr<IDispatch> dispatch = Dispatch();
    IDispatch* const last = dispatch.Get();
    last->AddRef();
    EXPECT_EQ(last->Release(), 2u);  // the target's and this one
    target_.reset();
    last->AddRef();
    EXPECT_EQ(last->Release(), 1u);
}

TEST_F(CCmdTargetTest, RefusesCallsAfterItsEnd) {
    const ComPtr<IDispatch> dispatch = Dispatch();
    target_.reset();
    VARIANT result;
    VariantInit(&result);
    EXPECT_EQ(CallWithNumber(*dispatch.Get(), 1, 7, &result), CO_E_OBJNOTCONNECTED);
    EXPECT_TRUE(record_.empty());
    EXPECT_EQ(V_VT(&result), VT_EMPTY);
}

}  // namespace
