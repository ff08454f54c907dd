#include "toast/server/ToastController.h"

#include <gtest/gtest.h>
#include <oleauto.h>
#include <olectl.h>

#include <functional>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>

#include "toast/server/ToastControllerFactory.h"
#include "toast/server/ToastTypeInfo.h"
#include "tests/support/ImportRedirect.h"
#include "tests/toast/server/TestSink.h"

namespace toast {
namespace {

using Microsoft::WRL::ComPtr;

// Keeps what clients do.
class KeepingReceiver final : public EventReceiver {
  public:
    bool Post(Event event) override {
        const std::lock_guard lock(mutex_);
        events_.push_back(std::move(event));
        if (fails_) {
            fails_();
        }
        return !isFull_;
    }

    [[nodiscard]] std::vector<Event> Take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(events_, {});
    }
    void SetFull() { isFull_ = true; }
    void FailBy(std::function<void()> fails) { fails_ = std::move(fails); }

  private:
    std::mutex mutex_;
    std::vector<Event> events_;
    bool isFull_ = false;
    std::function<void()> fails_;
};

// A text of COM's, freed with it.
class Text {
  public:
    explicit Text(std::wstring_view text)
        : text_(SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {}
    ~Text() { SysFreeString(text_); }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;
    operator BSTR() const { return text_; }

  private:
    BSTR text_;
};

class ToastControllerTest : public testing::Test {
  protected:
    ToastControllerTest() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    ~ToastControllerTest() override {
        factory_.Reset();
        parts_.reset();
        CoUninitialize();
    }

    [[nodiscard]] ComPtr<IToastCntr> Create() {
        ComPtr<IToastCntr> controller;
        EXPECT_EQ(factory_->CreateInstance(nullptr, kIidToastCntr,
                                           reinterpret_cast<void**>(controller.GetAddressOf())),
                  S_OK);
        return controller;
    }

    // The one event since the last look.
    template <typename What>
    [[nodiscard]] What Only() {
        const std::vector<Event> events = receiver_.Take();
        EXPECT_EQ(events.size(), 1u);
        return std::get<What>(events.at(0).what);
    }

    [[nodiscard]] static ComPtr<IConnectionPoint> EventsOf(IToastCntr& controller) {
        ComPtr<IConnectionPointContainer> container;
        EXPECT_EQ(controller.QueryInterface(__uuidof(IConnectionPointContainer), &container), S_OK);
        ComPtr<IConnectionPoint> events;
        EXPECT_EQ(container->FindConnectionPoint(kIidToastCntrEvents, &events), S_OK);
        return events;
    }

    KeepingReceiver receiver_;
    std::shared_ptr<ServerParts> parts_ = std::make_shared<ServerParts>(ServerParts{
        LoadToastTypeInfo(), receiver_, std::make_shared<ServerLifetime>(), std::make_shared<ClientList>()});
    ComPtr<IClassFactory> factory_{new ToastControllerFactory(parts_)};
};

TEST_F(ToastControllerTest, TellsThatAClientCameAndLeft) {
    ComPtr<IToastCntr> first = Create();
    ComPtr<IToastCntr> second = Create();
    first.Reset();
    const std::vector<Event> events = receiver_.Take();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_TRUE(std::holds_alternative<ClientCame>(events[0].what));
    EXPECT_TRUE(std::holds_alternative<ClientCame>(events[1].what));
    EXPECT_NE(events[0].client, events[1].client);
    EXPECT_TRUE(std::holds_alternative<ClientLeft>(events[2].what));
    EXPECT_EQ(events[2].client, events[0].client);
}

TEST_F(ToastControllerTest, TellsWhatItIsCalledWith) {
    const ComPtr<IToastCntr> controller = Create();
    static_cast<void>(receiver_.Take());
    EXPECT_EQ(controller->ShowUpdatePrompt(Text(L"5.10.2.0"), Text(L"5.10.3.0")), S_OK);
    EXPECT_EQ(Only<Question>(), (Question{L"5.10.2.0", L"5.10.3.0"}));
    EXPECT_EQ(controller->NotifyProgress(Text(L"start:118")), S_OK);
    EXPECT_EQ(Only<StatusLine>(), StatusLine(DownloadStart{118}));
    EXPECT_EQ(controller->NotifyProgress(Text(L"37")), S_OK);
    EXPECT_EQ(Only<StatusLine>(), StatusLine(BlocksTaken{37}));
    EXPECT_EQ(controller->NotifyComplete(), S_OK);
    static_cast<void>(Only<DownloadOver>());
}

TEST_F(ToastControllerTest, TakesEveryText) {
    const ComPtr<IToastCntr> controller = Create();
    static_cast<void>(receiver_.Take());
    EXPECT_EQ(controller->ShowUpdatePrompt(nullptr, Text(std::wstring(20'000'000, L'\u20AC'))), S_OK);
    EXPECT_EQ(Only<Question>(), (Question{L"", std::wstring(39, L'\u20AC') + L"\u2026"}));
    EXPECT_EQ(controller->ShowUpdatePrompt(Text(std::wstring_view(L"1\0\u202E2", 4)), Text(L"")), S_OK);
    EXPECT_EQ(Only<Question>(), (Question{L"12", L""}));
    EXPECT_EQ(controller->NotifyProgress(nullptr), S_OK);
    EXPECT_EQ(Only<StatusLine>(), StatusLine());
    EXPECT_EQ(controller->NotifyProgress(Text(std::wstring(20'000'000, L'1'))), S_OK);
    EXPECT_EQ(Only<StatusLine>(), StatusLine());
}

TEST_F(ToastControllerTest, IsBusyWhenTooMuchIsTold) {
    const ComPtr<IToastCntr> controller = Create();
    receiver_.SetFull();
    EXPECT_EQ(controller->ShowUpdatePrompt(Text(L"1"), Text(L"2")), HRESULT_FROM_WIN32(ERROR_BUSY));
    EXPECT_EQ(controller->NotifyProgress(Text(L"1")), HRESULT_FROM_WIN32(ERROR_BUSY));
    EXPECT_EQ(controller->NotifyComplete(), HRESULT_FROM_WIN32(ERROR_BUSY));
}

TEST_F(ToastControllerTest, TurnsWhatIsThrownIntoACode) {
    const ComPtr<IToastCntr> controller = Create();
    receiver_.FailBy([] { throw std::bad_alloc(); });
    EXPECT_EQ(controller->NotifyComplete(), E_OUTOFMEMORY);
    receiver_.FailBy([] { throw std::runtime_error("no"); });
    EXPECT_EQ(controller->NotifyComplete(), E_FAIL);
    receiver_.FailBy(nullptr);
}

TEST_F(ToastControllerTest, TakesCallsFromManyThreads) {
    const ComPtr<IToastCntr> controller = Create();
    static_cast<void>(receiver_.Take());
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 4; ++caller) {
        callers.emplace_back([&] {
            for (int call = 0; call < 100; ++call) {
                EXPECT_EQ(controller->NotifyProgress(Text(L"7")), S_OK);
                EXPECT_EQ(Create()->NotifyComplete(), S_OK);
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(receiver_.Take().size(), 1600u);
}

TEST_F(ToastControllerTest, TakesCallsByName) {
    const ComPtr<IToastCntr> controller = Create();
    static_cast<void>(receiver_.Take());
    UINT count = 0;
    EXPECT_EQ(controller->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
    ComPtr<ITypeInfo> typeInfo;
    EXPECT_EQ(controller->GetTypeInfo(0, 0, &typeInfo), S_OK);
    EXPECT_NE(typeInfo, nullptr);
    wchar_t name[] = L"ShowUpdatePrompt";
    LPOLESTR names = name;
    DISPID id = 0;
    ASSERT_EQ(controller->GetIDsOfNames(GUID{}, &names, 1, 0, &id), S_OK);
    EXPECT_EQ(id, 1);
    // The last argument first->
    const Text present(L"1.0.0.0");
    const Text offered(L"2.0.0.0");
    VARIANTARG arguments[2];
    V_VT(&arguments[0]) = VT_BSTR;
    V_BSTR(&arguments[0]) = offered;
    V_VT(&arguments[1]) = VT_BSTR;
    V_BSTR(&arguments[1]) = present;
    DISPPARAMS parameters{arguments, nullptr, 2, 0};
    EXPECT_EQ(controller->Invoke(id, GUID{}, 0, DISPATCH_METHOD, &parameters, nullptr, nullptr, nullptr),
              S_OK);
    EXPECT_EQ(Only<Question>(), (Question{L"1.0.0.0", L"2.0.0.0"}));
}

TEST_F(ToastControllerTest, RefusesWhatAutomationDoesNotKnow) {
    const ComPtr<IToastCntr> controller = Create();
    EXPECT_EQ(controller->GetTypeInfoCount(nullptr), E_POINTER);
    EXPECT_EQ(controller->GetTypeInfo(0, 0, nullptr), E_POINTER);
    ComPtr<ITypeInfo> typeInfo;
    EXPECT_EQ(controller->GetTypeInfo(1, 0, &typeInfo), DISP_E_BADINDEX);
    EXPECT_EQ(controller->GetIDsOfNames(__uuidof(IUnknown), nullptr, 0, 0, nullptr), DISP_E_UNKNOWNINTERFACE);
    EXPECT_EQ(controller->Invoke(1, __uuidof(IUnknown), 0, 0, nullptr, nullptr, nullptr, nullptr),
              DISP_E_UNKNOWNINTERFACE);
    DISPPARAMS none{};
    EXPECT_LT(controller->Invoke(99, GUID{}, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr), 0);
    EXPECT_LT(controller->Invoke(1, GUID{}, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr), 0);
}

TEST_F(ToastControllerTest, IsOneObjectToCom) {
    const ComPtr<IToastCntr> controller = Create();
    ComPtr<IUnknown> unknown;
    EXPECT_EQ(controller->QueryInterface(__uuidof(IUnknown), &unknown), S_OK);
    ComPtr<IDispatch> dispatch;
    EXPECT_EQ(controller->QueryInterface(__uuidof(IDispatch), &dispatch), S_OK);
    EXPECT_EQ(unknown.Get(), static_cast<IUnknown*>(controller.Get()));
    void* none = controller.Get();
    EXPECT_EQ(controller->QueryInterface(__uuidof(IStream), &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(controller->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
}

TEST_F(ToastControllerTest, HasOneConnectionPoint) {
    const ComPtr<IToastCntr> controller = Create();
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(controller->QueryInterface(__uuidof(IConnectionPointContainer), &container), S_OK);
    ComPtr<IConnectionPoint> point;
    EXPECT_EQ(container->FindConnectionPoint(kIidToastCntr, &point), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(container->FindConnectionPoint(kIidToastCntrEvents, nullptr), E_POINTER);
    EXPECT_EQ(container->EnumConnectionPoints(nullptr), E_POINTER);
    ComPtr<IEnumConnectionPoints> enumerator;
    ASSERT_EQ(container->EnumConnectionPoints(&enumerator), S_OK);
    ULONG fetched = 0;
    ASSERT_EQ(enumerator->Next(1, &point, &fetched), S_OK);
    IID events{};
    EXPECT_EQ(point->GetConnectionInterface(&events), S_OK);
    EXPECT_EQ(events, kIidToastCntrEvents);
    ComPtr<IConnectionPointContainer> back;
    EXPECT_EQ(point->GetConnectionPointContainer(&back), S_OK);
    EXPECT_EQ(back, container);
}

TEST_F(ToastControllerTest, FiresAnAnswerAtTheSinksOfWhoAsked) {
    const ComPtr<IToastCntr> controller = Create();
    const ClientId asker = receiver_.Take().at(0).client;
    const ComPtr<IToastCntr> other = Create();
    const ComPtr<TestSink> first(new TestSink);
    const ComPtr<TestSink> second(new TestSink(TestSink::Answers::kOnlyDispatch));
    const ComPtr<TestSink> foreign(new TestSink);
    DWORD firstCookie = 0;
    DWORD cookie = 0;
    EXPECT_EQ(EventsOf(*controller.Get())->Advise(first.Get(), &firstCookie), S_OK);
    EXPECT_EQ(EventsOf(*controller.Get())->Advise(second.Get(), &cookie), S_OK);
    EXPECT_EQ(EventsOf(*other.Get())->Advise(foreign.Get(), &cookie), S_OK);
    parts_->clients->Fire(1, {asker, 999});
    EXPECT_EQ(first->Fired(1), std::vector<LONG>{1});
    EXPECT_EQ(second->Fired(1), std::vector<LONG>{1});
    EXPECT_EQ(EventsOf(*controller.Get())->Unadvise(firstCookie), S_OK);
    parts_->clients->Fire(0, {asker});
    EXPECT_EQ(second->Fired(2), (std::vector<LONG>{1, 0}));
    EXPECT_EQ(first->Fired(1), std::vector<LONG>{1});
    EXPECT_TRUE(first->IsReleased());
    parts_->clients->ProbeAll();
    EXPECT_EQ(foreign->Probed(1), 1);
    EXPECT_EQ(foreign->Fired(0), std::vector<LONG>());
}

TEST_F(ToastControllerTest, LetsGoOfItsSinksWithItself) {
    ComPtr<IToastCntr> controller = Create();
    const ClientId client = receiver_.Take().at(0).client;
    const ComPtr<TestSink> sink(new TestSink);
    DWORD cookie = 0;
    EXPECT_EQ(EventsOf(*controller.Get())->Advise(sink.Get(), &cookie), S_OK);
    controller.Reset();
    EXPECT_TRUE(sink->IsReleased());
    parts_->clients->Fire(1, {client});
    parts_->clients->ProbeAll();
    EXPECT_EQ(sink->Fired(0), std::vector<LONG>());
}

TEST_F(ToastControllerTest, RefusesWhatIsNoSinkAndNoCookie) {
    const ComPtr<IToastCntr> controller = Create();
    const ComPtr<IConnectionPoint> events = EventsOf(*controller.Get());
    const ComPtr<TestSink> sink(new TestSink(TestSink::Answers::kOnlyUnknown));
    DWORD cookie = 9;
    EXPECT_EQ(events->Advise(sink.Get(), &cookie), CONNECT_E_CANNOTCONNECT);
    EXPECT_EQ(cookie, 0u);
    EXPECT_EQ(events->Advise(nullptr, &cookie), E_POINTER);
    EXPECT_EQ(events->Advise(sink.Get(), nullptr), E_POINTER);
    EXPECT_EQ(events->Unadvise(7), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(events->GetConnectionInterface(nullptr), E_POINTER);
    EXPECT_EQ(events->GetConnectionPointContainer(nullptr), E_POINTER);
    EXPECT_EQ(events->EnumConnections(nullptr), E_POINTER);
    ComPtr<IEnumConnections> connections;
    EXPECT_EQ(events->EnumConnections(&connections), E_NOTIMPL);
    EXPECT_EQ(events->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);
    void* none = nullptr;
    EXPECT_EQ(events->QueryInterface(__uuidof(IStream), &none), E_NOINTERFACE);
}

std::mutex disconnectedMutex;
std::vector<IUnknown*> disconnected;

HRESULT WINAPI Disconnect(IUnknown* object, DWORD) {
    const std::lock_guard lock(disconnectedMutex);
    disconnected.push_back(object);
    return S_OK;
}

std::vector<IUnknown*> Disconnected() {
    const std::lock_guard lock(disconnectedMutex);
    return disconnected;
}

TEST_F(ToastControllerTest, IsCutOffFromAClientWhoseProcessIsGone) {
    const test_support::ImportRedirect disconnect("CoDisconnectObject", &Disconnect);
    disconnected.clear();
    ComPtr<IToastCntr> controller = Create();
    const ComPtr<TestSink> sink(new TestSink);
    sink->Answer(RPC_E_SERVER_DIED);
    DWORD cookie = 0;
    EXPECT_EQ(EventsOf(*controller.Get())->Advise(sink.Get(), &cookie), S_OK);
    parts_->clients->ProbeAll();
    EXPECT_TRUE(sink->IsReleased());
    for (int look = 0; look < 1000 && Disconnected().size() < 2; ++look) {
        Sleep(10);
    }
    EXPECT_EQ(Disconnected(), (std::vector<IUnknown*>{controller.Get(), EventsOf(*controller.Get()).Get()}));
}

TEST_F(ToastControllerTest, IsMadeByAFactory) {
    EXPECT_EQ(factory_->CreateInstance(nullptr, kIidToastCntr, nullptr), E_POINTER);
    void* object = factory_.Get();
    EXPECT_EQ(factory_->CreateInstance(factory_.Get(), kIidToastCntr, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(factory_->CreateInstance(nullptr, __uuidof(IStream), &object), E_NOINTERFACE);
    EXPECT_EQ(factory_->QueryInterface(__uuidof(IStream), &object), E_NOINTERFACE);
    ComPtr<IUnknown> same;
    EXPECT_EQ(factory_->QueryInterface(__uuidof(IClassFactory), &same), S_OK);
    EXPECT_EQ(same, factory_);
    EXPECT_EQ(factory_->QueryInterface(__uuidof(IClassFactory), nullptr), E_POINTER);
    EXPECT_EQ(factory_->LockServer(TRUE), S_OK);
    EXPECT_EQ(factory_->LockServer(FALSE), S_OK);
}

HRESULT WINAPI NoLibrary(LPCOLESTR, REGKIND, ITypeLib** library) {
    *library = nullptr;
    return TYPE_E_CANTLOADLIBRARY;
}

TEST(ToastTypeInfo, IsNothingWithoutATypeLibrary) {
    EXPECT_NE(LoadToastTypeInfo(), nullptr);
    const test_support::ImportRedirect load("LoadTypeLibEx", &NoLibrary);
    EXPECT_EQ(LoadToastTypeInfo(), nullptr);
}

}  // namespace
}  // namespace toast
