#include "tests/lab/toast/ToastControllerFixture.h"

#include <olectl.h>
#include <oleauto.h>

#include <thread>

#include <nlohmann/json.hpp>

#include "tests/lab/toast/RecordingSink.h"

namespace {

using Microsoft::WRL::ComPtr;
using nlohmann::json;
using namespace std::chrono_literals;

// A text argument that frees itself.
class Text {
  public:
    explicit Text(const wchar_t* text) : text_(SysAllocString(text)) {}
    ~Text() { SysFreeString(text_); }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;
    operator BSTR() const { return text_; }

  private:
    BSTR text_;
};

json PromptCall(const char* method, json texts) {
    return {{"event", "prompt-call"}, {"method", method}, {"texts", std::move(texts)}};
}

json Done(const char* command) {
    return {{"event", "done"}, {"command", command}, {"ok", true}};
}

json Refused(const char* command, const char* why) {
    return {{"event", "done"}, {"command", command}, {"ok", false}, {"why", why}};
}

json Respond(LONG code) {
    return {{"command", "respond"}, {"code", code}};
}

json Answer(LONG code, int sinks) {
    return {{"event", "answer"}, {"code", code}, {"sinks", sinks}, {"result", 0}};
}

using ToastController = ToastControllerFixture;

// A server that is activated while the laboratory listens.
class ToastControllerOnTheWire : public ToastControllerFixture {
  protected:
    void SetUp() override {
        OpenWire();
        controller_ = Activate();
        events_ = EventsOf(*controller_.Get());
    }

    // A second object of the server.
    static ComPtr<IToastCntr> ActivateAnother() {
        ComPtr<IToastCntr> other;
        EXPECT_EQ(
            CoCreateInstance(__uuidof(ToastCntr), nullptr, CLSCTX_LOCAL_SERVER, __uuidof(IToastCntr), &other),
            S_OK);
        return other;
    }

    void ExpectEvent(const json& event) { EXPECT_EQ(wire_->NextEvent(), event); }

    // Advises the sink and takes the event that tells so.
    DWORD Advise(IConnectionPoint& events, RecordingSink& sink) {
        DWORD cookie = 0;
        EXPECT_EQ(events.Advise(&sink, &cookie), S_OK);
        ExpectEvent({{"event", "advised"}, {"cookie", cookie}});
        return cookie;
    }
    DWORD Advise(RecordingSink& sink) { return Advise(*events_.Get(), sink); }

    void Unadvise(IConnectionPoint& events, DWORD cookie) {
        EXPECT_EQ(events.Unadvise(cookie), S_OK);
        ExpectEvent({{"event", "unadvised"}, {"cookie", cookie}});
    }
    void Unadvise(DWORD cookie) { Unadvise(*events_.Get(), cookie); }

    // Takes the events that tell that so many sinks have taken the answer.
    void ExpectAnswered(LONG code, int sinks) {
        ExpectEvent(Answer(code, sinks));
        ExpectEvent(Done("respond"));
    }

    ComPtr<IToastCntr> controller_;
    ComPtr<IConnectionPoint> events_;
};

TEST_F(ToastControllerOnTheWire, ReportsTheThreeCallsWithTheirTexts) {
    EXPECT_EQ(controller_->ShowUpdatePrompt(Text(L"5.10.2.0"), Text(L"5.10.3.0")), S_OK);
    EXPECT_EQ(controller_->NotifyProgress(Text(L"start:118")), S_OK);
    EXPECT_EQ(controller_->NotifyProgress(Text(L"1")), S_OK);
    EXPECT_EQ(controller_->NotifyComplete(), S_OK);
    ExpectEvent(PromptCall("ShowUpdatePrompt", {"5.10.2.0", "5.10.3.0"}));
    ExpectEvent(PromptCall("NotifyProgress", json::array({"start:118"})));
    ExpectEvent(PromptCall("NotifyProgress", json::array({"1"})));
    ExpectEvent(PromptCall("NotifyComplete", json::array()));
}

TEST_F(ToastControllerOnTheWire, TakesAbsentAndForeignTexts) {
    EXPECT_EQ(controller_->ShowUpdatePrompt(nullptr, Text(L"\u00FC\u20AC")), S_OK);
    ExpectEvent(PromptCall("ShowUpdatePrompt", {"", "\xC3\xBC\xE2\x82\xAC"}));
}

TEST_F(ToastControllerOnTheWire, TakesCallsByNameThroughItsTypeLibrary) {
    wchar_t name[] = L"NotifyProgress";
    LPOLESTR names = name;
    DISPID id = 0;
    ASSERT_EQ(controller_->GetIDsOfNames(GUID{}, &names, 1, LOCALE_USER_DEFAULT, &id), S_OK);
    const Text status(L"7");
    VARIANTARG argument;
    V_VT(&argument) = VT_BSTR;
    V_BSTR(&argument) = status;
    DISPPARAMS parameters{&argument, nullptr, 1, 0};
    EXPECT_EQ(controller_->Invoke(id, GUID{}, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, nullptr,
                                  nullptr, nullptr),
              S_OK);
    ExpectEvent(PromptCall("NotifyProgress", json::array({"7"})));
}

TEST_F(ToastControllerOnTheWire, FiresUserRespondAtTheAdvisedSink) {
    RecordingSink sink;
    const DWORD cookie = Advise(sink);
    wire_->Send(Respond(1));
    const auto call = sink.NextCall();
    ASSERT_TRUE(call.has_value());
    EXPECT_EQ(call->id, 1);
    EXPECT_EQ(call->flags, DISPATCH_METHOD);
    EXPECT_EQ(call->arguments, 1u);
    EXPECT_EQ(call->type, VT_I4);
    EXPECT_EQ(call->code, 1);
    EXPECT_NE(call->thread, GetCurrentThreadId());
    ExpectAnswered(1, 1);
    Unadvise(cookie);
}

TEST_F(ToastControllerOnTheWire, FiresEveryCodeInOrder) {
    RecordingSink sink;
    const DWORD cookie = Advise(sink);
    for (const LONG code : {0L, 2L, -1L, 0x7FFFFFFFL}) {
        wire_->Send(Respond(code));
    }
    for (const LONG code : {0L, 2L, -1L, 0x7FFFFFFFL}) {
        const auto call = sink.NextCall();
        ASSERT_TRUE(call.has_value());
        EXPECT_EQ(call->code, code);
        ExpectAnswered(code, 1);
    }
    Unadvise(cookie);
}

// The second sink knows IDispatch alone; the third is advised at another object of the server.
TEST_F(ToastControllerOnTheWire, FiresAtTheSinksOfAllItsObjects) {
    const ComPtr<IToastCntr> other = ActivateAnother();
    const ComPtr<IConnectionPoint> otherEvents = EventsOf(*other.Get());
    RecordingSink first;
    RecordingSink second(RecordingSink::Answers::kOnlyDispatch);
    RecordingSink third;
    const DWORD firstCookie = Advise(first);
    const DWORD secondCookie = Advise(second);
    const DWORD thirdCookie = Advise(*otherEvents.Get(), third);
    wire_->Send(Respond(1));
    EXPECT_TRUE(first.NextCall().has_value());
    EXPECT_TRUE(second.NextCall().has_value());
    EXPECT_TRUE(third.NextCall().has_value());
    ExpectAnswered(1, 3);
    Unadvise(firstCookie);
    Unadvise(secondCookie);
    Unadvise(*otherEvents.Get(), thirdCookie);
}

// The service calls back while it handles the answer.
TEST_F(ToastControllerOnTheWire, TakesCallsFromInsideTheEvent) {
    RecordingSink sink;
    sink.WhenCalled([&] { EXPECT_EQ(controller_->NotifyProgress(Text(L"start:0")), S_OK); });
    const DWORD cookie = Advise(sink);
    wire_->Send(Respond(1));
    EXPECT_TRUE(sink.NextCall().has_value());
    ExpectEvent(PromptCall("NotifyProgress", json::array({"start:0"})));
    ExpectAnswered(1, 1);
    Unadvise(cookie);
}

TEST_F(ToastControllerOnTheWire, RefusesToRespondWhenNobodyListens) {
    RecordingSink sink;
    Unadvise(Advise(sink));
    wire_->Send(Respond(1));
    ExpectEvent(Answer(1, 0));
    ExpectEvent(Refused("respond", "no sink is advised"));
    EXPECT_FALSE(sink.NextCall(0ms).has_value());
}

TEST_F(ToastControllerOnTheWire, ForgetsTheSinksOfAReleasedObject) {
    ComPtr<IToastCntr> other = ActivateAnother();
    RecordingSink sink;
    Advise(*EventsOf(*other.Get()).Get(), sink);
    other.Reset();
    wire_->Send(Respond(1));
    ExpectEvent(Answer(1, 0));
    ExpectEvent(Refused("respond", "no sink is advised"));
}

TEST_F(ToastController, RefusesASinkThatIsNoDispatch) {
    const ComPtr<IToastCntr> controller = Activate();
    const ComPtr<IConnectionPoint> events = EventsOf(*controller.Get());
    RecordingSink sink(RecordingSink::Answers::kOnlyUnknown);
    DWORD cookie = 9;
    EXPECT_EQ(events->Advise(&sink, &cookie), CONNECT_E_CANNOTCONNECT);
}

TEST_F(ToastControllerOnTheWire, RefusesTheCookieOfAnotherObject) {
    const ComPtr<IToastCntr> other = ActivateAnother();
    RecordingSink sink;
    const DWORD cookie = Advise(sink);
    EXPECT_EQ(EventsOf(*other.Get())->Unadvise(cookie), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(events_->Unadvise(cookie + 1), CONNECT_E_NOCONNECTION);
    Unadvise(cookie);
}

TEST_F(ToastController, HasOneConnectionPoint) {
    const ComPtr<IToastCntr> controller = Activate();
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(controller.As(&container), S_OK);
    ComPtr<IConnectionPoint> none;
    EXPECT_EQ(container->FindConnectionPoint(__uuidof(IToastCntr), &none), CONNECT_E_NOCONNECTION);
    ComPtr<IEnumConnectionPoints> enumerator;
    ASSERT_EQ(container->EnumConnectionPoints(&enumerator), S_OK);
    ComPtr<IConnectionPoint> point;
    ULONG fetched = 0;
    ASSERT_EQ(enumerator->Next(1, &point, &fetched), S_OK);
    IID events{};
    EXPECT_EQ(point->GetConnectionInterface(&events), S_OK);
    EXPECT_EQ(events, __uuidof(IToastCntrEvents));
    EXPECT_EQ(enumerator->Skip(1), S_FALSE);
}

TEST_F(ToastControllerOnTheWire, FailsTheMethodThatTheScenarioNames) {
    wire_->Send({{"command", "fail"}, {"method", "NotifyProgress"}, {"hresult", E_FAIL}});
    ExpectEvent(Done("fail"));
    EXPECT_EQ(controller_->NotifyProgress(Text(L"1")), E_FAIL);
    EXPECT_EQ(controller_->NotifyComplete(), S_OK);
    ExpectEvent(PromptCall("NotifyProgress", json::array({"1"})));
    ExpectEvent(PromptCall("NotifyComplete", json::array()));
    wire_->Send({{"command", "fail"}, {"method", "NotifyProgress"}, {"hresult", 0}});
    ExpectEvent(Done("fail"));
    EXPECT_EQ(controller_->NotifyProgress(Text(L"2")), S_OK);
}

TEST_F(ToastControllerOnTheWire, RefusesCommandsItCannotCarryOut) {
    wire_->Send({{"command", "fail"}, {"method", "Shout"}, {"hresult", E_FAIL}});
    ExpectEvent(Refused("fail", "no such method"));
    wire_->Send({{"command", "fail"}, {"method", "NotifyProgress"}, {"hresult", "E_FAIL"}});
    ExpectEvent(Refused("fail", "hresult is no 32-bit number"));
    wire_->Send({{"command", "respond"}, {"code", 4294967296}});
    ExpectEvent(Refused("respond", "code is no 32-bit number"));
    wire_->Send({{"command", "respond"}});
    ExpectEvent(Refused("respond", "code is no 32-bit number"));
    wire_->Send({{"command", "dance"}});
    ExpectEvent(Refused("dance", "no such command"));
    wire_->Send({{"command", 7}});
    ExpectEvent(Refused("", "no such command"));
}

TEST_F(ToastControllerOnTheWire, DiesWhenTheScenarioWantsACrash) {
    const win32::UniqueKernelHandle process = ServerProcess();
    ASSERT_TRUE(process);
    wire_->Send({{"command", "die"}});
    ExpectEvent(Done("die"));
    EXPECT_EQ(ExitCodeWithin(process, 20s), 3u);
    EXPECT_LT(controller_->NotifyComplete(), 0);
}

// Follows the crash: a server that was killed must not spoil the next activation.
TEST_F(ToastControllerOnTheWire, ComesBackAfterACrash) {
    const win32::UniqueKernelHandle process = ServerProcess();
    wire_->Send({{"command", "die"}});
    ASSERT_TRUE(ExitCodeWithin(process, 20s).has_value());
    OpenWire();
    const ComPtr<IToastCntr> controller = Activate();
    EXPECT_EQ(controller->NotifyComplete(), S_OK);
}

TEST_F(ToastController, LeavesAfterTheLastReleaseAndNotBefore) {
    ComPtr<IToastCntr> controller = Activate();
    const win32::UniqueKernelHandle process = ServerProcess();
    ASSERT_TRUE(process);
    EXPECT_EQ(ExitCodeWithin(process, 3s), std::nullopt);
    controller.Reset();
    EXPECT_EQ(ExitCodeWithin(process, 500ms), std::nullopt);
    EXPECT_EQ(ExitCodeWithin(process, 20s), 0u);
}

TEST_F(ToastController, IsFoundByAClientThatComesStraightBack) {
    Activate().Reset();
    const DWORD id = GetProcessId(ServerProcess().Get());
    const ComPtr<IToastCntr> controller = Activate();
    const win32::UniqueKernelHandle process = ServerProcess();
    EXPECT_EQ(GetProcessId(process.Get()), id);
    EXPECT_EQ(ExitCodeWithin(process, 3s), std::nullopt);
    EXPECT_EQ(controller->NotifyComplete(), S_OK);
}

TEST_F(ToastController, StartsAgainForAClientThatComesLater) {
    Activate().Reset();
    ASSERT_EQ(ExitCodeWithin(ServerProcess(), 20s), 0u);
    EXPECT_EQ(Activate()->NotifyComplete(), S_OK);
}

TEST_F(ToastController, StaysWhileItIsLocked) {
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(CoGetClassObject(__uuidof(ToastCntr), CLSCTX_LOCAL_SERVER, nullptr, __uuidof(IClassFactory),
                               &factory),
              S_OK);
    const HRESULT locked = factory->LockServer(TRUE);
    Activate().Reset();
    if (locked == E_NOTIMPL) {
        GTEST_SKIP() << "this system's proxy of IClassFactory does not carry LockServer to the server";
    }
    ASSERT_EQ(locked, S_OK);
    const win32::UniqueKernelHandle process = ServerProcess();
    EXPECT_EQ(ExitCodeWithin(process, 3s), std::nullopt);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    EXPECT_EQ(ExitCodeWithin(process, 20s), 0u);
}

TEST_F(ToastControllerOnTheWire, LeavesWhenTheLaboratoryClosesTheWireWhoeverHoldsIt) {
    RecordingSink sink;
    Advise(sink);
    const win32::UniqueKernelHandle process = ServerProcess();
    wire_->Close();
    EXPECT_EQ(ExitCodeWithin(process, 20s), 0u);
    EXPECT_LT(controller_->NotifyComplete(), 0);
}

// A sink that does not return must not keep the server: its class would stay behind. The sink is stuck until
// the test's process ends, so what it touches lives as long.
TEST_F(ToastControllerOnTheWire, LeavesAlthoughASinkDoesNotReturn) {
    const win32::UniqueKernelHandle entered(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    static RecordingSink sink;
    sink.WhenCalled([event = entered.Get()] {
        SetEvent(event);
        Sleep(INFINITE);
    });
    Advise(sink);
    wire_->Send(Respond(1));
    ASSERT_EQ(WaitForSingleObject(entered.Get(), 20'000), WAIT_OBJECT_0);
    const win32::UniqueKernelHandle process = ServerProcess();
    wire_->Close();
    EXPECT_EQ(ExitCodeWithin(process, 20s), 0u);
}

TEST_F(ToastController, WorksWithoutALaboratoryAndNeverAnswers) {
    ComPtr<IToastCntr> controller = Activate();
    const ComPtr<IConnectionPoint> events = EventsOf(*controller.Get());
    RecordingSink sink;
    DWORD cookie = 0;
    ASSERT_EQ(events->Advise(&sink, &cookie), S_OK);
    EXPECT_EQ(controller->ShowUpdatePrompt(Text(L"5.10.2.0"), Text(L"5.10.3.0")), S_OK);
    EXPECT_EQ(controller->NotifyProgress(Text(L"start:3")), S_OK);
    EXPECT_EQ(controller->NotifyComplete(), S_OK);
    EXPECT_FALSE(sink.NextCall(1s).has_value());
    EXPECT_EQ(events->Unadvise(cookie), S_OK);
}

TEST_F(ToastControllerOnTheWire, HangsInACallUntilItIsReleased) {
    wire_->Send({{"command", "hang"}, {"method", "NotifyComplete"}, {"skip", 1}});
    ExpectEvent(Done("hang"));
    EXPECT_EQ(controller_->NotifyComplete(), S_OK);
    ExpectEvent(PromptCall("NotifyComplete", json::array()));
    wire_->Send({{"command", "fail"}, {"method", "NotifyComplete"}, {"hresult", E_FAIL}});
    ExpectEvent(Done("fail"));
    std::thread releasing([this] {
        ExpectEvent(PromptCall("NotifyComplete", json::array()));
        wire_->Send({{"command", "release"}});
        ExpectEvent(Done("release"));
    });
    EXPECT_EQ(controller_->NotifyComplete(), E_FAIL);
    releasing.join();
    wire_->Send({{"command", "behave"}});
    ExpectEvent(Done("behave"));
    EXPECT_EQ(controller_->NotifyComplete(), S_OK);
    ExpectEvent(PromptCall("NotifyComplete", json::array()));
    wire_->Send({{"command", "hang"}, {"method", "Shout"}});
    ExpectEvent(Refused("hang", "no such method"));
    wire_->Send({{"command", "hang"}, {"method", "NotifyComplete"}, {"ms", -1}});
    ExpectEvent(Refused("hang", "ms and skip are counts"));
}

TEST_F(ToastControllerOnTheWire, HangsAtTheEndOfAConnection) {
    RecordingSink sink;
    const DWORD cookie = Advise(sink);
    wire_->Send({{"command", "hang"}, {"method", "Unadvise"}, {"ms", 300}});
    ExpectEvent(Done("hang"));
    const auto begin = std::chrono::steady_clock::now();
    Unadvise(cookie);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 250ms);
}

// The port of a laboratory that is gone is as good as none.
TEST_F(ToastController, WorksWhenNobodyListensAtThePort) {
    const DWORD deadPort = 1;
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\VeyraLaboratory", L"Port", REG_DWORD, &deadPort,
                              sizeof deadPort),
              ERROR_SUCCESS);
    EXPECT_EQ(Activate()->NotifyComplete(), S_OK);
}

}  // namespace
