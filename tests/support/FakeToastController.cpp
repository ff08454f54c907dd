#include "tests/support/FakeToastController.h"

#include "tests/support/DispatchCall.h"

#include <oleauto.h>
#include <olectl.h>

#include <array>
#include <utility>

namespace test_support {
namespace {

constexpr IID kToastInterface{0x45E679A1, 0xAE15, 0x45DC, {0x85, 0x4E, 0x13, 0xD9, 0x0F, 0xD8, 0x64, 0xC5}};
constexpr IID kEventInterface{0xBAE9D3F9, 0xD047, 0x4A89, {0xB5, 0xAD, 0x86, 0x2D, 0x8A, 0x2B, 0x29, 0xD0}};
constexpr DISPID kUserRespond = 1;

std::wstring Text(BSTR text) {
    return text == nullptr ? L"(null)" : std::wstring(text, SysStringLen(text));
}

}  // namespace

class FakeToastController::ConnectionPoint final : public IConnectionPoint {
  public:
    explicit ConnectionPoint(FakeToastController* server) : server_(server) {}

    [[nodiscard]] ULONG References() const { return references_; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        if (--references_ == 0) {
            server_->happenings_.emplace_back("connection point released");
        }
        return references_;
    }
    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* given) override {
        server_->happenings_.emplace_back("advised");
        if (FAILED(server_->adviseResult)) {
            return server_->adviseResult;
        }
        sink->AddRef();
        server_->sink_ = sink;
        *given = server_->cookie;
        return server_->adviseResult;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD ended) override {
        server_->happenings_.push_back("unadvised " + std::to_string(ended));
        if (IUnknown* const sink = std::exchange(server_->sink_, nullptr)) {
            sink->Release();
        }
        if (server_->whileUnadvised) {
            server_->whileUnadvised();
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections**) override { return E_NOTIMPL; }

  private:
    FakeToastController* server_;
    ULONG references_ = 0;
};

class FakeToastController::Container final : public IConnectionPointContainer {
  public:
    explicit Container(FakeToastController* server) : server_(server) {}

    [[nodiscard]] ULONG References() const { return references_; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override { return --references_; }
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID events, IConnectionPoint** found) override {
        server_->eventsLookedFor_.push_back(events);
        *found = nullptr;
        if (!server_->givesNoConnectionPoint) {
            *found = server_->connectionPoint_.get();
            (*found)->AddRef();
        }
        return server_->findResult;
    }

  private:
    FakeToastController* server_;
    ULONG references_ = 0;
};

FakeToastController::FakeToastController()
    : object_{nullptr, this},
      container_(std::make_unique<Container>(this)),
      connectionPoint_(std::make_unique<ConnectionPoint>(this)) {
    static const std::array<void*, 10> slots{
        reinterpret_cast<void*>(QueryInterface),    // 0, those of IUnknown
        reinterpret_cast<void*>(AddRef),            // 1
        reinterpret_cast<void*>(Release),           // 2
        reinterpret_cast<void*>(RefuseDispatch),    // 3, those of IDispatch
        reinterpret_cast<void*>(RefuseDispatch),    // 4
        reinterpret_cast<void*>(RefuseDispatch),    // 5
        reinterpret_cast<void*>(RefuseDispatch),    // 6
        reinterpret_cast<void*>(ShowUpdatePrompt),  // 7, the server's own
        reinterpret_cast<void*>(NotifyProgress),    // 8
        reinterpret_cast<void*>(NotifyComplete),    // 9
    };
    object_.slots = slots.data();
}

FakeToastController::~FakeToastController() {
    if (sink_ != nullptr) {
        sink_->Release();
    }
}

IUnknown* FakeToastController::Unknown() {
    return reinterpret_cast<IUnknown*>(&object_);
}

std::vector<FakeToastController::Call> FakeToastController::CallsOf(const std::string& method) const {
    std::vector<Call> found;
    for (const Call& call : calls_) {
        if (call.method == method) {
            found.push_back(call);
        }
    }
    return found;
}

ULONG FakeToastController::ContainerReferences() const {
    return container_->References();
}

ULONG FakeToastController::ConnectionPointReferences() const {
    return connectionPoint_->References();
}

HRESULT FakeToastController::FireUserRespond(LONG answer, VARIANT* result) {
    IDispatch* events = nullptr;
    if (sink_ == nullptr ||
        FAILED(sink_->QueryInterface(kEventInterface, reinterpret_cast<void**>(&events)))) {
        return CONNECT_E_NOCONNECTION;
    }
    const HRESULT status = CallWithNumber(*events, kUserRespond, answer, result);
    events->Release();
    return status;
}

HRESULT STDMETHODCALLTYPE FakeToastController::QueryInterface(Object* object, REFIID interfaceId,
                                                              void** queried) {
    FakeToastController& server = *object->owner;
    server.queries_.push_back(interfaceId);
    *queried = nullptr;
    if (IsEqualGUID(interfaceId, IID_IConnectionPointContainer)) {
        if (FAILED(server.containerResult) || server.givesNoContainer) {
            return server.containerResult;
        }
        server.container_->AddRef();
        *queried = static_cast<IConnectionPointContainer*>(server.container_.get());
        return server.containerResult;
    }
    const bool isToast = IsEqualGUID(interfaceId, kToastInterface) != FALSE;
    if (isToast && FAILED(server.interfaceResult)) {
        return server.interfaceResult;
    }
    if (!isToast && !IsEqualGUID(interfaceId, IID_IUnknown)) {
        return E_NOINTERFACE;
    }
    AddRef(object);
    *queried = object;
    return S_OK;
}

ULONG STDMETHODCALLTYPE FakeToastController::AddRef(Object* object) {
    return ++object->owner->references_;
}

ULONG STDMETHODCALLTYPE FakeToastController::Release(Object* object) {
    FakeToastController& server = *object->owner;
    if (--server.references_ == 0) {
        server.happenings_.emplace_back("server released");
    }
    return server.references_;
}

HRESULT STDMETHODCALLTYPE FakeToastController::RefuseDispatch() {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE FakeToastController::ShowUpdatePrompt(Object* object, BSTR cameraVersion,
                                                                BSTR imageVersion) {
    return object->owner->Record({"ShowUpdatePrompt", {Text(cameraVersion), Text(imageVersion)}});
}

HRESULT STDMETHODCALLTYPE FakeToastController::NotifyProgress(Object* object, BSTR text) {
    return object->owner->Record({"NotifyProgress", {Text(text)}});
}

HRESULT STDMETHODCALLTYPE FakeToastController::NotifyComplete(Object* object) {
    return object->owner->Record({"NotifyComplete", {}});
}

HRESULT FakeToastController::Record(Call call) {
    calls_.push_back(call);
    if (whileCalled) {
        whileCalled(call);
    }
    const auto result = results.find(call.method);
    return result == results.end() ? S_OK : result->second;
}

}  // namespace test_support
