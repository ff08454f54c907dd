#include "prompt/CNotifyClient.h"

#include <gtest/gtest.h>

#include "tests/prompt/BstrAllocations.h"
#include "tests/support/FakeToastController.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace {

using test_support::FakeToastController;
using Texts = std::vector<std::wstring>;

constexpr HRESULT kOutOfMemory = static_cast<HRESULT>(0x8007000E);

class CNotifyClientTest : public testing::Test {
  protected:
    // The only call that the server got.
    [[nodiscard]] FakeToastController::Call OnlyCall() const {
        EXPECT_EQ(server_.Calls().size(), 1u);
        return server_.Calls().empty() ? FakeToastController::Call{} : server_.Calls().front();
    }

    FakeToastController server_;
    std::shared_ptr<IToastCntrPtr> pointer_ =
        std::make_shared<IToastCntrPtr>(reinterpret_cast<IToastCntr*>(server_.Unknown()));
    CNotifyClient client_{pointer_};
};

// The code of the COM error that the operation raises.
std::optional<HRESULT> RaisedBy(const std::function<void()>& operation) {
    try {
        operation();
        return std::nullopt;
    } catch (const _com_error& error) {
        return error.Error();
    }
}

TEST_F(CNotifyClientTest, PromptsWithTheCamerasVersionThenTheImages) {
    EXPECT_TRUE(client_.ShowUpdatePrompt(L"5.10.2.0", L"5.10.3.0"));
    EXPECT_EQ(OnlyCall().method, "ShowUpdatePrompt");
    EXPECT_EQ(OnlyCall().texts, (Texts{L"5.10.2.0", L"5.10.3.0"}));
}

TEST_F(CNotifyClientTest, PromptsWithAnEmptyImageVersion) {
    EXPECT_TRUE(client_.ShowUpdatePrompt(L"5.10.2.0", L""));
    EXPECT_EQ(OnlyCall().texts, (Texts{L"5.10.2.0", L""}));
}

TEST_F(CNotifyClientTest, StartsWithTheNumberOfBlocks) {
    EXPECT_TRUE(client_.NotifyStart(1024));
    EXPECT_EQ(OnlyCall().method, "NotifyProgress");
    EXPECT_EQ(OnlyCall().texts, Texts{L"start:1024"});
}

TEST_F(CNotifyClientTest, StartsWithASingleZeroForNoBlocks) {
    EXPECT_TRUE(client_.NotifyStart(0));
    EXPECT_EQ(OnlyCall().texts, Texts{L"start:0"});
}

TEST_F(CNotifyClientTest, StartsWithAnUnsignedNumber) {
    EXPECT_TRUE(client_.NotifyStart(4294967295U));
    EXPECT_EQ(OnlyCall().texts, Texts{L"start:4294967295"});
}

TEST_F(CNotifyClientTest, ReportsProgressAsItStands) {
    EXPECT_TRUE(client_.NotifyProgress(L"37"));
    EXPECT_EQ(OnlyCall().method, "NotifyProgress");
    EXPECT_EQ(OnlyCall().texts, Texts{L"37"});
}

TEST_F(CNotifyClientTest, SucceedsWithEveryResultThatIsNotNegative) {
    server_.results = {{"ShowUpdatePrompt", S_FALSE}, {"NotifyProgress", S_FALSE}};
    EXPECT_TRUE(client_.ShowUpdatePrompt(L"1.0.0.0", L"2.0.0.0"));
    EXPECT_TRUE(client_.NotifyStart(1));
    EXPECT_TRUE(client_.NotifyProgress(L"1"));
}

TEST_F(CNotifyClientTest, FailsWithANegativeResult) {
    server_.results = {{"ShowUpdatePrompt", E_FAIL}, {"NotifyProgress", RPC_E_DISCONNECTED}};
    EXPECT_FALSE(client_.ShowUpdatePrompt(L"1.0.0.0", L"2.0.0.0"));
    EXPECT_FALSE(client_.NotifyStart(1));
    EXPECT_FALSE(client_.NotifyProgress(L"1"));
    EXPECT_EQ(server_.Calls().size(), 3u);
}

TEST_F(CNotifyClientTest, KeepsItsTextsForTheCallAndFreesThemAfterwards) {
    BstrAllocations texts;
    std::vector<std::size_t> liveInCall;
    server_.whileCalled = [&](const FakeToastController::Call& call) {
        liveInCall.push_back(texts.Live());
        EXPECT_GE(texts.Live(), call.texts.size());
    };
    client_.ShowUpdatePrompt(L"1.0.0.0", L"2.0.0.0");
    EXPECT_EQ(texts.Live(), 0u);
    client_.NotifyStart(1);
    EXPECT_EQ(texts.Live(), 0u);
    client_.NotifyProgress(L"1");
    EXPECT_EQ(texts.Live(), 0u);
    EXPECT_EQ(liveInCall.size(), 3u);
}

TEST_F(CNotifyClientTest, FreesItsTextsWhenTheCallFails) {
    server_.results = {{"ShowUpdatePrompt", E_FAIL}, {"NotifyProgress", E_FAIL}};
    BstrAllocations texts;
    client_.ShowUpdatePrompt(L"1.0.0.0", L"2.0.0.0");
    client_.NotifyStart(1);
    client_.NotifyProgress(L"1");
    EXPECT_GE(texts.Count(), 4);
    EXPECT_EQ(texts.Live(), 0u);
}

struct RefusedText {
    const char* operation;
    std::function<void(const CNotifyClient&)> call;
    int allocation;
};

class CNotifyClientOutOfMemory : public CNotifyClientTest, public testing::WithParamInterface<RefusedText> {};

TEST_P(CNotifyClientOutOfMemory, RaisesTheComErrorAndCallsNothing) {
    BstrAllocations texts;
    texts.Refuse(GetParam().allocation);
    EXPECT_EQ(RaisedBy([this] { GetParam().call(client_); }), kOutOfMemory);
    EXPECT_EQ(texts.Count(), GetParam().allocation);
    EXPECT_EQ(texts.Live(), 0u);
    EXPECT_TRUE(server_.Calls().empty());
}

void Prompt(const CNotifyClient& client) {
    client.ShowUpdatePrompt(L"1.0.0.0", L"2.0.0.0");
}
void Start(const CNotifyClient& client) {
    client.NotifyStart(1);
}
void Progress(const CNotifyClient& client) {
    client.NotifyProgress(L"1");
}

INSTANTIATE_TEST_SUITE_P(
    EveryText, CNotifyClientOutOfMemory,
    testing::Values(RefusedText{"PromptFirst", Prompt, 1}, RefusedText{"PromptSecond", Prompt, 2},
                    RefusedText{"StartLabel", Start, 1}, RefusedText{"StartNumber", Start, 2},
                    RefusedText{"StartJoined", Start, 3}, RefusedText{"Progress", Progress, 1}),
    [](const auto& refused) { return refused.param.operation; });

TEST_F(CNotifyClientTest, SharesTheServersPointer) {
    EXPECT_EQ(pointer_.use_count(), 2);
    {
        const CNotifyClient other(pointer_);
        EXPECT_EQ(pointer_.use_count(), 3);
        EXPECT_EQ(server_.References(), 1u);
    }
    EXPECT_EQ(pointer_.use_count(), 2);
}

TEST_F(CNotifyClientTest, CallsTheServerThatItsPointerHoldsNow) {
    FakeToastController other;
    *pointer_ = reinterpret_cast<IToastCntr*>(other.Unknown());
    client_.NotifyProgress(L"1");
    EXPECT_TRUE(server_.Calls().empty());
    EXPECT_EQ(other.Calls().size(), 1u);
    *pointer_ = nullptr;
}

}  // namespace
