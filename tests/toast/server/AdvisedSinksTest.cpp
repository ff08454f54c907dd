#include "toast/server/AdvisedSinks.h"

#include <gtest/gtest.h>

#include "win32/UniqueHandle.h"
#include "tests/toast/server/TestSink.h"

namespace toast {
namespace {

using Microsoft::WRL::ComPtr;
using Codes = std::vector<LONG>;

constexpr HRESULT kServerUnavailable = static_cast<HRESULT>(0x800706BA);

class AdvisedSinksTest : public testing::Test {
  protected:
    AdvisedSinksTest() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    ~AdvisedSinksTest() override {
        sinks_.reset();
        CoUninitialize();
    }

    std::atomic<int> objectsAskedFor_ = 0;
    std::shared_ptr<AdvisedSinks> sinks_ = std::make_shared<AdvisedSinks>([this] {
        ++objectsAskedFor_;
        return std::vector<ComPtr<IUnknown>>();
    });
};

TEST_F(AdvisedSinksTest, HoldsASinkUntilItIsRemoved) {
    const ComPtr<TestSink> sink(new TestSink);
    const DWORD cookie = sinks_->Add(sink.Get());
    EXPECT_NE(cookie, 0u);
    EXPECT_EQ(sink->References(), 1u);
    EXPECT_TRUE(sinks_->Remove(cookie));
    EXPECT_EQ(sink->References(), 0u);
    EXPECT_FALSE(sinks_->Remove(cookie));
    EXPECT_NE(sinks_->Add(sink.Get()), cookie);
    sinks_.reset();
    EXPECT_EQ(sink->References(), 0u);
}

TEST_F(AdvisedSinksTest, FiresAtEachInOrder) {
    const ComPtr<TestSink> first(new TestSink);
    const ComPtr<TestSink> second(new TestSink);
    static_cast<void>(sinks_->Add(first.Get()));
    static_cast<void>(sinks_->Add(second.Get()));
    sinks_->Fire(1);
    sinks_->Fire(0);
    EXPECT_EQ(first->Fired(2), (Codes{1, 0}));
    EXPECT_EQ(second->Fired(2), (Codes{1, 0}));
}

TEST_F(AdvisedSinksTest, DoNotWaitForASinkThatHangs) {
    const win32::UniqueKernelHandle released(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const ComPtr<TestSink> hanging(new TestSink);
    const ComPtr<TestSink> other(new TestSink);
    hanging->Answer(S_OK, [&] { WaitForSingleObject(released.Get(), INFINITE); });
    static_cast<void>(sinks_->Add(hanging.Get()));
    static_cast<void>(sinks_->Add(other.Get()));
    sinks_->Fire(1);
    sinks_->Fire(0);
    EXPECT_EQ(other->Fired(2), (Codes{1, 0}));
    EXPECT_EQ(hanging->Fired(1), Codes{1});
    sinks_->Probe();
    EXPECT_EQ(hanging->Probed(0), 0);
    hanging->Answer(S_OK);
    SetEvent(released.Get());
    EXPECT_EQ(hanging->Fired(2), (Codes{1, 0}));
    sinks_.reset();
    EXPECT_TRUE(hanging->IsReleased());
}

// The sink's own calls may take the lock again: it is called with none held.
TEST_F(AdvisedSinksTest, MayBeChangedInsideAnEvent) {
    const ComPtr<TestSink> sink(new TestSink);
    DWORD cookie = 0;
    std::atomic<bool> removed = false;
    sink->Answer(S_OK, [&] { removed = sinks_->Remove(cookie); });
    cookie = sinks_->Add(sink.Get());
    sinks_->Fire(1);
    EXPECT_TRUE(sink->IsReleased());
    EXPECT_TRUE(removed);
}

TEST_F(AdvisedSinksTest, KeepASinkThatFails) {
    const ComPtr<TestSink> sink(new TestSink);
    sink->Answer(E_FAIL);
    static_cast<void>(sinks_->Add(sink.Get()));
    sinks_->Fire(1);
    sinks_->Fire(0);
    EXPECT_EQ(sink->Fired(2), (Codes{1, 0}));
}

TEST_F(AdvisedSinksTest, DropASinkThatIsCutOff) {
    const ComPtr<TestSink> sink(new TestSink);
    sink->Answer(CO_E_OBJNOTCONNECTED);
    static_cast<void>(sinks_->Add(sink.Get()));
    sinks_->Probe();
    EXPECT_TRUE(sink->IsReleased());
    EXPECT_EQ(objectsAskedFor_, 0);
}

TEST_F(AdvisedSinksTest, AskForTheObjectsWhenTheLastSinkOfADeadClientIsDropped) {
    const ComPtr<TestSink> first(new TestSink);
    const ComPtr<TestSink> second(new TestSink);
    static_cast<void>(sinks_->Add(first.Get()));
    static_cast<void>(sinks_->Add(second.Get()));
    first->Answer(RPC_E_DISCONNECTED);
    sinks_->Fire(1);
    EXPECT_TRUE(first->IsReleased());
    EXPECT_EQ(objectsAskedFor_, 0);
    second->Answer(kServerUnavailable);
    sinks_->Probe();
    EXPECT_TRUE(second->IsReleased());
    for (int look = 0; look < 1000 && objectsAskedFor_ == 0; ++look) {
        Sleep(10);
    }
    EXPECT_EQ(objectsAskedFor_, 1);
}

TEST_F(AdvisedSinksTest, ForgetTheObjectsThatGo) {
    const ComPtr<TestSink> sink(new TestSink);
    sink->Answer(kServerUnavailable);
    static_cast<void>(sinks_->Add(sink.Get()));
    sinks_->ForgetObjects();
    sinks_->Probe();
    EXPECT_TRUE(sink->IsReleased());
    EXPECT_EQ(objectsAskedFor_, 0);
}

}  // namespace
}  // namespace toast
