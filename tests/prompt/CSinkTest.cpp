#include "prompt/CSink.h"

#include <gtest/gtest.h>

#include "diagnostics/TraceProvider.h"
#include "tests/support/DispatchCall.h"
#include "tests/support/FakeToastController.h"
#include "tests/support/Patience.h"
#include "tests/support/TraceRecorder.h"

#include <oleauto.h>
#include <olectl.h>

#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <string>
#include <vector>

namespace {

using Microsoft::WRL::ComPtr;
using test_support::FakeToastController;
using test_support::kPatience;
using test_support::kWatchTime;
using test_support::TraceRecorder;

constexpr GUID kSinkGroup{0x86E9D1B4, 0x5F2A, 0x4C37, {0xB8, 0x1E, 0x20, 0xA7, 0x93, 0x4D, 0xF6, 0x5C}};
constexpr GUID kEvents{0xBAE9D3F9, 0xD047, 0x4A89, {0xB5, 0xAD, 0x86, 0x2D, 0x8A, 0x2B, 0x29, 0xD0}};
constexpr GUID kContainer{0xB196B284, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};
constexpr USHORT kAdvised = 10;
constexpr USHORT kAdviseFailed = 11;
constexpr HRESULT kNullPointer = static_cast<HRESULT>(0x80004003);

class CSinkTest : public testing::Test {
  protected:
    CSinkTest() {
        traces_.EnableSession(8);
        TraceProvider::Register();
    }

    [[nodiscard]] std::shared_ptr<IToastCntrPtr> Pointer() {
        return std::make_shared<IToastCntrPtr>(reinterpret_cast<IToastCntr*>(server_.Unknown()));
    }
    // The code of the COM error that advising raises.
    std::optional<HRESULT> RaisedByAdvise(std::shared_ptr<IToastCntrPtr> pointer) {
        try {
            sink_->Advise(std::move(pointer));
            return std::nullopt;
        } catch (const _com_error& error) {
            return error.Error();
        }
    }

    TraceRecorder traces_;
    FakeToastController server_;
    std::atomic<int> accepted_{0};
    std::shared_ptr<CSink> sink_ = std::make_shared<CSink>([this] { ++accepted_; });
};

TEST_F(CSinkTest, ConnectsItsUnknownToTheEventInterface) {
    sink_->Advise(Pointer());
    ASSERT_EQ(server_.Queries().size(), 1u);
    EXPECT_TRUE(IsEqualGUID(server_.Queries()[0], kContainer));
    ASSERT_EQ(server_.EventsLookedFor().size(), 1u);
    EXPECT_TRUE(IsEqualGUID(server_.EventsLookedFor()[0], kEvents));
    EXPECT_EQ(server_.Sink(), sink_->GetControllingUnknown().Get());
}

TEST_F(CSinkTest, HoldsTheConnectionPointAndNotTheContainer) {
    sink_->Advise(Pointer());
    EXPECT_EQ(server_.ConnectionPointReferences(), 1u);
    EXPECT_EQ(server_.ContainerReferences(), 0u);
}

TEST_F(CSinkTest, TracesTheCookieOfItsConnection) {
    server_.cookie = 0x12345678;
    sink_->Advise(Pointer());
    const auto messages = traces_.Find(kSinkGroup, kAdvised);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].Code(), 0x12345678u);
    EXPECT_EQ(traces_.Numbers(kSinkGroup), std::vector<USHORT>{kAdvised});
}

TEST_F(CSinkTest, TracesItsConnectionAsInformation) {
    traces_.EnableSession(3);
    sink_->Advise(Pointer());
    EXPECT_TRUE(traces_.Messages().empty());
    traces_.EnableSession(4);
    sink_->Advise(Pointer());
    EXPECT_EQ(traces_.Find(kSinkGroup, kAdvised).size(), 1u);
}

TEST_F(CSinkTest, TracesARefusedConnectionAndGoesOn) {
    server_.adviseResult = CONNECT_E_ADVISELIMIT;
    EXPECT_EQ(RaisedByAdvise(Pointer()), std::nullopt);
    const auto messages = traces_.Find(kSinkGroup, kAdviseFailed);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].Code(), 0x80040201u);
    EXPECT_EQ(traces_.Numbers(kSinkGroup), std::vector<USHORT>{kAdviseFailed});
}

TEST_F(CSinkTest, TracesARefusedConnectionAsAnError) {
    server_.adviseResult = E_FAIL;
    traces_.EnableSession(1);
    sink_->Advise(Pointer());
    EXPECT_TRUE(traces_.Messages().empty());
    traces_.EnableSession(2);
    sink_->Advise(Pointer());
    EXPECT_EQ(traces_.Find(kSinkGroup, kAdviseFailed).size(), 1u);
}

TEST_F(CSinkTest, RaisesANullServerAsAnInvalidPointer) {
    EXPECT_EQ(RaisedByAdvise(std::make_shared<IToastCntrPtr>()), kNullPointer);
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_F(CSinkTest, RaisesAServerThatIsNoContainerAsAnInvalidPointer) {
    server_.containerResult = E_NOINTERFACE;
    EXPECT_EQ(RaisedByAdvise(Pointer()), kNullPointer);
    EXPECT_TRUE(server_.EventsLookedFor().empty());
}

TEST_F(CSinkTest, RaisesAContainerThatIsNotGivenAsAnInvalidPointer) {
    server_.givesNoContainer = true;
    EXPECT_EQ(RaisedByAdvise(Pointer()), kNullPointer);
}

TEST_F(CSinkTest, RaisesAnyOtherFailureOfTheQueryAsItIs) {
    server_.containerResult = RPC_E_DISCONNECTED;
    EXPECT_EQ(RaisedByAdvise(Pointer()), static_cast<HRESULT>(0x80010108));
    EXPECT_TRUE(server_.EventsLookedFor().empty());
}

TEST_F(CSinkTest, RaisesAMissingConnectionPointAsAnInvalidPointerWhateverItsResult) {
    server_.givesNoConnectionPoint = true;
    server_.findResult = CONNECT_E_NOCONNECTION;
    EXPECT_EQ(RaisedByAdvise(Pointer()), kNullPointer);
    server_.findResult = S_OK;
    EXPECT_EQ(RaisedByAdvise(Pointer()), kNullPointer);
    EXPECT_TRUE(server_.Happenings().empty());
    EXPECT_EQ(server_.ContainerReferences(), 0u);
}

// Only the pointer decides.
TEST_F(CSinkTest, ConnectsToAConnectionPointThatCameWithAFailure) {
    server_.findResult = E_FAIL;
    EXPECT_EQ(RaisedByAdvise(Pointer()), std::nullopt);
    EXPECT_NE(server_.Sink(), nullptr);
}

TEST_F(CSinkTest, ReleasesItsPreviousConnectionPointWhenItConnectsAgain) {
    FakeToastController other;
    sink_->Advise(Pointer());
    sink_->Advise(std::make_shared<IToastCntrPtr>(reinterpret_cast<IToastCntr*>(other.Unknown())));
    EXPECT_EQ(server_.ConnectionPointReferences(), 0u);
    EXPECT_EQ(other.ConnectionPointReferences(), 1u);
    sink_.reset();
    EXPECT_EQ(other.ConnectionPointReferences(), 0u);
}

TEST_F(CSinkTest, EndsItsConnectionThenLetsGoOfTheServerThenOfTheConnectionPoint) {
    sink_->Advise(Pointer());
    sink_.reset();
    EXPECT_EQ(server_.Happenings(), (std::vector<std::string>{"advised", "unadvised 4711", "server released",
                                                              "connection point released"}));
    EXPECT_EQ(server_.References(), 0u);
    EXPECT_EQ(server_.ConnectionPointReferences(), 0u);
}

TEST_F(CSinkTest, EndsARefusedConnectionWithTheCookieThatItNeverGot) {
    server_.adviseResult = E_FAIL;
    sink_->Advise(Pointer());
    sink_.reset();
    EXPECT_EQ(server_.Happenings()[1], "unadvised 0");
}

TEST_F(CSinkTest, EndsNothingWhenItWasNeverConnected) {
    sink_.reset();
    EXPECT_TRUE(server_.Happenings().empty());
}

// What is given up stands there until the process ends: so does its server.
TEST_F(CSinkTest, GivesAServerUpThatHangsAtTheEndOfTheConnection) {
    FakeToastController& hanging = *std::make_unique<FakeToastController>().release();
    std::promise<void> unadvised;
    hanging.whileUnadvised = [&unadvised] {
        unadvised.set_value();
        Sleep(INFINITE);
    };
    sink_->Advise(std::make_shared<IToastCntrPtr>(reinterpret_cast<IToastCntr*>(hanging.Unknown())));
    ComPtr<IDispatch> events;
    ASSERT_EQ(hanging.Sink()->QueryInterface(kEvents, reinterpret_cast<void**>(events.GetAddressOf())), S_OK);

    const auto begin = std::chrono::steady_clock::now();
    sink_.reset();
    const auto taken = std::chrono::steady_clock::now() - begin;

    EXPECT_GE(taken, std::chrono::milliseconds(1900));
    EXPECT_LT(taken, std::chrono::seconds(2) + kPatience);
    ASSERT_EQ(unadvised.get_future().wait_for(kPatience), std::future_status::ready);
    // No release was the last: that would be a call into the same server.
    EXPECT_EQ(hanging.Happenings(), (std::vector<std::string>{"advised", "unadvised 4711"}));
    EXPECT_EQ(test_support::CallWithNumber(*events.Get(), 1, 1, nullptr), CO_E_OBJNOTCONNECTED);
}

TEST_F(CSinkTest, WaitsForAServerThatTakesItsTimeAtTheEndOfTheConnection) {
    server_.whileUnadvised = [] { Sleep(300); };
    sink_->Advise(Pointer());
    sink_.reset();
    EXPECT_EQ(server_.Happenings(), (std::vector<std::string>{"advised", "unadvised 4711", "server released",
                                                              "connection point released"}));
}

TEST_F(CSinkTest, AnswersTheEventInterfaceWithItsDispatch) {
    const auto unknown = sink_->GetControllingUnknown();
    ComPtr<IDispatch> dispatch;
    ComPtr<IDispatch> events;
    ASSERT_EQ(unknown->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(dispatch.GetAddressOf())),
              S_OK);
    ASSERT_EQ(unknown->QueryInterface(kEvents, reinterpret_cast<void**>(events.GetAddressOf())), S_OK);
    EXPECT_EQ(events.Get(), dispatch.Get());
}

TEST_F(CSinkTest, KnowsItsEventByName) {
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(sink_->GetControllingUnknown()->QueryInterface(
                  IID_IDispatch, reinterpret_cast<void**>(dispatch.GetAddressOf())),
              S_OK);
    wchar_t name[] = L"UserRespond";
    wchar_t* names[] = {name};
    DISPID id = DISPID_UNKNOWN;
    EXPECT_EQ(dispatch->GetIDsOfNames(IID_NULL, names, 1, LOCALE_NEUTRAL, &id), S_OK);
    EXPECT_EQ(id, 1);
    EXPECT_EQ(
        dispatch->Invoke(2, IID_NULL, LOCALE_NEUTRAL, DISPATCH_METHOD, nullptr, nullptr, nullptr, nullptr),
        DISP_E_MEMBERNOTFOUND);
}

TEST_F(CSinkTest, PassesAnAcceptedUpdateOn) {
    sink_->Advise(Pointer());
    VARIANT result;
    VariantInit(&result);
    EXPECT_EQ(server_.FireUserRespond(1, &result), S_OK);
    EXPECT_EQ(accepted_, 1);
    EXPECT_EQ(V_VT(&result), VT_I4);
    EXPECT_EQ(V_I4(&result), 0);
}

TEST_F(CSinkTest, PassesEveryAcceptanceOn) {
    sink_->Advise(Pointer());
    server_.FireUserRespond(1);
    server_.FireUserRespond(1);
    EXPECT_EQ(accepted_, 2);
}

class CSinkOtherAnswer : public CSinkTest, public testing::WithParamInterface<LONG> {};

TEST_P(CSinkOtherAnswer, ChangesNothingAndReturnsZero) {
    sink_->Advise(Pointer());
    traces_.Forget();
    VARIANT result;
    VariantInit(&result);
    V_I4(&result) = 99;
    EXPECT_EQ(server_.FireUserRespond(GetParam(), &result), S_OK);
    EXPECT_EQ(V_VT(&result), VT_I4);
    EXPECT_EQ(V_I4(&result), 0);
    EXPECT_EQ(accepted_, 0);
    EXPECT_TRUE(traces_.Messages().empty());
    EXPECT_TRUE(server_.Calls().empty());
}

INSTANTIATE_TEST_SUITE_P(Answers, CSinkOtherAnswer,
                         testing::Values(0, 2, 3, -1, 0x101, 0x10001, LONG_MAX, LONG_MIN));

TEST_F(CSinkTest, TakesAnswersOnAnyThread) {
    sink_->Advise(Pointer());
    EXPECT_EQ(std::async(std::launch::async, [this] { return server_.FireUserRespond(1); }).get(), S_OK);
    EXPECT_EQ(accepted_, 1);
}

TEST_F(CSinkTest, TakesNoAnswerAfterItsEnd) {
    sink_->Advise(Pointer());
    ComPtr<IDispatch> events;
    ASSERT_EQ(server_.Sink()->QueryInterface(kEvents, reinterpret_cast<void**>(events.GetAddressOf())), S_OK);
    sink_.reset();
    EXPECT_EQ(test_support::CallWithNumber(*events.Get(), 1, 1, nullptr), CO_E_OBJNOTCONNECTED);
    EXPECT_EQ(accepted_, 0);
}

TEST_F(CSinkTest, WaitsAtItsEndForTheAnswerBeingHandled) {
    std::promise<void> entered;
    std::promise<void> release;
    sink_ = std::make_shared<CSink>([&] {
        entered.set_value();
        release.get_future().wait();
        ++accepted_;
    });
    sink_->Advise(Pointer());
    auto answer = std::async(std::launch::async, [this] { return server_.FireUserRespond(1); });
    ASSERT_EQ(entered.get_future().wait_for(kPatience), std::future_status::ready);
    auto end = std::async(std::launch::async, [this] { sink_.reset(); });
    EXPECT_EQ(end.wait_for(kWatchTime), std::future_status::timeout);
    release.set_value();
    ASSERT_EQ(end.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(accepted_, 1);
    EXPECT_EQ(answer.get(), S_OK);
}

TEST_F(CSinkTest, LetsNoExceptionOfTheAnswersHandlerOut) {
    sink_ = std::make_shared<CSink>([] { throw std::runtime_error("the camera is gone"); });
    sink_->Advise(Pointer());
    EXPECT_EQ(server_.FireUserRespond(1), E_FAIL);
}

}  // namespace
