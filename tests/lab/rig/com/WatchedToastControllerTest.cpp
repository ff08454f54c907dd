#include "lab/rig/com/WatchedToastController.h"

#include <gtest/gtest.h>

#include "tests/lab/rig/contracts/ToldBreaches.h"
#include "tests/support/FakeToastController.h"

#include <oleauto.h>
#include <olectl.h>

#include <initializer_list>

using namespace lab::rig;
using Microsoft::WRL::ComPtr;

namespace {

using Strings = std::vector<std::string>;

constexpr GUID kEvents{0xBAE9D3F9, 0xD047, 0x4A89, {0xB5, 0xAD, 0x86, 0x2D, 0x8A, 0x2B, 0x29, 0xD0}};
constexpr char kContract[] = "nothing that COM gave is called after the last CoUninitialize: ";

class WatchedToastControllerTest : public testing::Test {
  protected:
    WatchedToastControllerTest() {
        library_.Entered();
        *watched_.GetAddressOf() = new WatchedToastController(library_, ComPtr<IUnknown>(server_.Unknown()));
    }

    ComPtr<IToastCntr> Controller() {
        ComPtr<IToastCntr> controller;
        EXPECT_EQ(watched_.As(&controller), S_OK);
        return controller;
    }
    ComPtr<IConnectionPoint> ConnectionPoint() {
        ComPtr<IConnectionPointContainer> container;
        EXPECT_EQ(watched_.As(&container), S_OK);
        ComPtr<IConnectionPoint> point;
        EXPECT_EQ(container->FindConnectionPoint(kEvents, &point), S_OK);
        return point;
    }
    static Strings Breaches(std::initializer_list<const char*> calls) {
        Strings breaches;
        for (const char* const call : calls) {
            breaches.push_back(std::string(kContract) + call);
        }
        return breaches;
    }

    test_support::FakeToastController server_;
    ToldBreaches breaches_;
    ComLibrary library_{breaches_.Report()};
    ComPtr<IUnknown> watched_;
};

TEST_F(WatchedToastControllerTest, PassesTheCallsOn) {
    const BSTR text = SysAllocString(L"7");
    const auto controller = Controller();
    server_.results["NotifyProgress"] = E_FAIL;
    EXPECT_EQ(controller->ShowUpdatePrompt(text, text), S_OK);
    EXPECT_EQ(controller->NotifyProgress(text), E_FAIL);
    EXPECT_EQ(controller->NotifyComplete(), S_OK);
    SysFreeString(text);
    ASSERT_EQ(server_.Calls().size(), 3u);
    EXPECT_EQ(server_.Calls()[0].texts, (std::vector<std::wstring>{L"7", L"7"}));
    EXPECT_EQ(server_.Calls()[2].method, "NotifyComplete");
    EXPECT_EQ(breaches_.Take(), Strings{});
}

TEST_F(WatchedToastControllerTest, IsOneObject) {
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(watched_.As(&container), S_OK);
    ComPtr<IUnknown> identity;
    ASSERT_EQ(container.As(&identity), S_OK);
    EXPECT_EQ(identity.Get(), watched_.Get());
    EXPECT_EQ(static_cast<IUnknown*>(Controller().Get()), watched_.Get());
}

TEST_F(WatchedToastControllerTest, IsItsOwnDispatch) {
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(watched_.As(&dispatch), S_OK);
    EXPECT_EQ(dispatch.Get(), Controller().Get());
    library_.Left();
    UINT count = 0;
    EXPECT_EQ(dispatch->GetTypeInfoCount(&count), CO_E_OBJNOTCONNECTED);
    EXPECT_EQ(breaches_.Take(), Breaches({"IToastCntr::GetTypeInfoCount"}));
}

TEST_F(WatchedToastControllerTest, GivesNothingOutThatIsNotWatched) {
    const auto controller = Controller();
    const auto point = ConnectionPoint();
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(watched_.As(&container), S_OK);
    const std::size_t queries = server_.Queries().size();
    for (IUnknown* const object :
         std::initializer_list<IUnknown*>{watched_.Get(), container.Get(), point.Get()}) {
        IMarshal* other = reinterpret_cast<IMarshal*>(this);
        EXPECT_EQ(object->QueryInterface(__uuidof(IMarshal), reinterpret_cast<void**>(&other)),
                  E_NOINTERFACE);
        EXPECT_EQ(other, nullptr);
    }
    EXPECT_EQ(server_.Queries().size(), queries);
    ComPtr<ITypeInfo> info;
    ComPtr<IEnumConnectionPoints> points;
    ComPtr<IEnumConnections> connections;
    ComPtr<IConnectionPointContainer> another;
    EXPECT_EQ(controller->GetTypeInfo(0, LOCALE_NEUTRAL, &info), E_NOTIMPL);
    EXPECT_EQ(container->EnumConnectionPoints(&points), E_NOTIMPL);
    EXPECT_EQ(point->EnumConnections(&connections), E_NOTIMPL);
    EXPECT_EQ(point->GetConnectionPointContainer(&another), E_NOTIMPL);
    EXPECT_EQ(breaches_.Take(), Strings{});
    library_.Left();
    EXPECT_EQ(controller->GetTypeInfo(0, LOCALE_NEUTRAL, &info), CO_E_OBJNOTCONNECTED);
    EXPECT_EQ(container->EnumConnectionPoints(&points), CO_E_OBJNOTCONNECTED);
    EXPECT_EQ(point->EnumConnections(&connections), CO_E_OBJNOTCONNECTED);
    EXPECT_EQ(point->GetConnectionPointContainer(&another), CO_E_OBJNOTCONNECTED);
    EXPECT_EQ(
        breaches_.Take(),
        Breaches({"IToastCntr::GetTypeInfo", "IConnectionPointContainer::EnumConnectionPoints",
                  "IConnectionPoint::EnumConnections", "IConnectionPoint::GetConnectionPointContainer"}));
}

TEST_F(WatchedToastControllerTest, RefusesWhatTheServerRefuses) {
    server_.interfaceResult = E_NOINTERFACE;
    server_.containerResult = E_ACCESSDENIED;
    ComPtr<IToastCntr> controller;
    ComPtr<IConnectionPointContainer> container;
    ComPtr<IMoniker> other;
    EXPECT_EQ(watched_.As(&controller), E_NOINTERFACE);
    EXPECT_EQ(watched_.As(&container), E_ACCESSDENIED);
    EXPECT_EQ(watched_.As(&other), E_NOINTERFACE);
    EXPECT_EQ(controller, nullptr);
    EXPECT_EQ(container, nullptr);
}

TEST_F(WatchedToastControllerTest, HasNoConnectionPointThatTheServerHasNot) {
    server_.givesNoConnectionPoint = true;
    server_.findResult = CONNECT_E_NOCONNECTION;
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(watched_.As(&container), S_OK);
    ComPtr<IConnectionPoint> point;
    EXPECT_EQ(container->FindConnectionPoint(kEvents, &point), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point, nullptr);
}

TEST_F(WatchedToastControllerTest, RefusesAQuestionWithoutAPlaceForTheAnswer) {
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(watched_.As(&container), S_OK);
    EXPECT_EQ(watched_->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
    EXPECT_EQ(container->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
    EXPECT_EQ(container->FindConnectionPoint(kEvents, nullptr), E_POINTER);
    EXPECT_EQ(ConnectionPoint()->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
}

TEST_F(WatchedToastControllerTest, ConnectsTheSinkItself) {
    const auto point = ConnectionPoint();
    DWORD cookie = 0;
    EXPECT_EQ(point->Advise(server_.Unknown(), &cookie), S_OK);
    EXPECT_EQ(cookie, server_.cookie);
    EXPECT_EQ(server_.Sink(), server_.Unknown());
    EXPECT_EQ(point->Unadvise(cookie), S_OK);
    EXPECT_EQ(server_.Sink(), nullptr);
}

TEST_F(WatchedToastControllerTest, TellsTheCallsThatItPassesOn) {
    Strings told;
    PromptReports reports;
    reports.called = [&](std::string_view method, const std::vector<std::wstring>& texts) {
        told.push_back(std::string(method) + " " + std::to_string(texts.size()));
        EXPECT_EQ(server_.Calls().size(), told.size());
        for (const std::wstring& text : texts) {
            EXPECT_EQ(text, (std::wstring{L'7', L'\0', L'8'}));
        }
    };
    ComPtr<IUnknown> watched;
    *watched.GetAddressOf() =
        new WatchedToastController(library_, ComPtr<IUnknown>(server_.Unknown()), reports);
    ComPtr<IToastCntr> controller;
    ASSERT_EQ(watched.As(&controller), S_OK);
    const BSTR text = SysAllocStringLen(L"7\0008", 3);
    EXPECT_EQ(controller->ShowUpdatePrompt(text, text), S_OK);
    EXPECT_EQ(controller->NotifyProgress(text), S_OK);
    EXPECT_EQ(controller->NotifyComplete(), S_OK);
    SysFreeString(text);
    EXPECT_EQ(told, (Strings{"ShowUpdatePrompt 2", "NotifyProgress 1", "NotifyComplete 0"}));
}

// A sink that keeps what it was invoked with.
class InvokedSink final : public IDispatch {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const bool isMine = iid == __uuidof(IUnknown) || iid == __uuidof(IDispatch);
        *object = isMine ? static_cast<IDispatch*>(this) : nullptr;
        return isMine ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        *count = 3;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return DISP_E_BADINDEX; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override {
        invoked.push_back(id);
        return E_FAIL;
    }
    virtual ~InvokedSink() = default;

    std::vector<DISPID> invoked;
};

TEST_F(WatchedToastControllerTest, TellsWhenTheSinkIsCalledAndWhenItHasReturned) {
    InvokedSink sink;
    std::vector<std::pair<bool, std::size_t>> told;
    PromptReports reports;
    reports.handling = [&](bool isHandling) { told.emplace_back(isHandling, sink.invoked.size()); };
    ComPtr<IUnknown> watched;
    *watched.GetAddressOf() =
        new WatchedToastController(library_, ComPtr<IUnknown>(server_.Unknown()), reports);
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(watched.As(&container), S_OK);
    ComPtr<IConnectionPoint> point;
    ASSERT_EQ(container->FindConnectionPoint(kEvents, &point), S_OK);
    DWORD cookie = 0;
    ASSERT_EQ(point->Advise(&sink, &cookie), S_OK);

    ComPtr<IDispatch> seen;
    ASSERT_EQ(server_.Sink()->QueryInterface(kEvents, reinterpret_cast<void**>(seen.GetAddressOf())), S_OK);
    DISPPARAMS none{};
    EXPECT_EQ(seen->Invoke(1, IID_NULL, LOCALE_NEUTRAL, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr),
              E_FAIL);
    EXPECT_EQ(told, (std::vector<std::pair<bool, std::size_t>>{{true, 0}, {false, 1}}));
    EXPECT_EQ(point->Unadvise(cookie), S_OK);
}

TEST_F(WatchedToastControllerTest, TellsTheAnswersThatTheSinkGets) {
    std::vector<LONG> answers;
    PromptReports reports;
    reports.answered = [&](LONG answer) { answers.push_back(answer); };
    ComPtr<IUnknown> watched;
    *watched.GetAddressOf() =
        new WatchedToastController(library_, ComPtr<IUnknown>(server_.Unknown()), reports);
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(watched.As(&container), S_OK);
    ComPtr<IConnectionPoint> point;
    ASSERT_EQ(container->FindConnectionPoint(kEvents, &point), S_OK);
    InvokedSink sink;
    DWORD cookie = 0;
    ASSERT_EQ(point->Advise(&sink, &cookie), S_OK);

    ComPtr<IDispatch> seen;
    ASSERT_EQ(server_.Sink()->QueryInterface(kEvents, reinterpret_cast<void**>(seen.GetAddressOf())), S_OK);
    EXPECT_NE(seen.Get(), &sink);
    ComPtr<IMarshal> other;
    EXPECT_EQ(seen.As(&other), E_NOINTERFACE);
    EXPECT_EQ(seen->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
    UINT count = 0;
    EXPECT_EQ(seen->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(seen->GetTypeInfo(0, LOCALE_NEUTRAL, nullptr), DISP_E_BADINDEX);
    EXPECT_EQ(seen->GetIDsOfNames(GUID{}, nullptr, 0, LOCALE_NEUTRAL, nullptr), DISP_E_UNKNOWNNAME);

    VARIANTARG argument;
    V_VT(&argument) = VT_I4;
    V_I4(&argument) = 1;
    DISPPARAMS parameters{&argument, nullptr, 1, 0};
    const auto invoke = [&](DISPID id, DISPPARAMS* with) {
        return seen->Invoke(id, GUID{}, LOCALE_NEUTRAL, DISPATCH_METHOD, with, nullptr, nullptr, nullptr);
    };
    EXPECT_EQ(invoke(1, &parameters), E_FAIL);
    EXPECT_EQ(invoke(2, &parameters), E_FAIL);
    EXPECT_EQ(invoke(1, nullptr), E_FAIL);
    EXPECT_EQ(answers, (std::vector<LONG>{1}));
    EXPECT_EQ(sink.invoked, (std::vector<DISPID>{1, 2, 1}));
    EXPECT_EQ(point->Unadvise(cookie), S_OK);
}

TEST_F(WatchedToastControllerTest, LetsGoOfTheServerWithTheLastReference) {
    ConnectionPoint();
    Controller();
    watched_.Reset();
    EXPECT_EQ(server_.References(), 0u);
    EXPECT_EQ(server_.ContainerReferences(), 0u);
    EXPECT_EQ(server_.ConnectionPointReferences(), 0u);
    EXPECT_EQ(breaches_.Take(), Strings{});
}

TEST_F(WatchedToastControllerTest, PassesNothingOnOnceItsCodeIsGone) {
    auto controller = Controller();
    auto point = ConnectionPoint();
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(watched_.As(&container), S_OK);
    const std::size_t queries = server_.Queries().size();
    library_.Left();
    ComPtr<IConnectionPoint> another;
    EXPECT_EQ(container->FindConnectionPoint(kEvents, &another), CO_E_OBJNOTCONNECTED);
    EXPECT_EQ(breaches_.Take(), Breaches({"IConnectionPointContainer::FindConnectionPoint"}));
    EXPECT_EQ(controller->NotifyComplete(), CO_E_OBJNOTCONNECTED);
    EXPECT_EQ(point->Unadvise(server_.cookie), CO_E_OBJNOTCONNECTED);
    ComPtr<IUnknown> other;
    EXPECT_EQ(watched_->QueryInterface(__uuidof(IDispatch), reinterpret_cast<void**>(other.GetAddressOf())),
              CO_E_OBJNOTCONNECTED);
    EXPECT_EQ(breaches_.Take(), Breaches({"IToastCntr::NotifyComplete", "IConnectionPoint::Unadvise",
                                          "IToastCntr::QueryInterface"}));
    EXPECT_TRUE(server_.Calls().empty());
    EXPECT_EQ(server_.Queries().size(), queries);
}

TEST_F(WatchedToastControllerTest, ReleasesNothingOnceItsCodeIsGone) {
    auto point = ConnectionPoint();
    library_.Left();
    point.Reset();
    watched_.Reset();
    EXPECT_EQ(breaches_.Take(), Breaches({"IConnectionPoint::Release", "IToastCntr::Release"}));
    EXPECT_EQ(server_.ConnectionPointReferences(), 1u);
    EXPECT_EQ(server_.References(), 1u);
}

}  // namespace
