#include "tests/support/FakeCamera.h"

#include "tests/support/ForwardingAttributes.h"
#include "tests/support/GuidText.h"

#include <mfidl.h>

#include <atomic>
#include <iterator>
#include <utility>

namespace test_support {
namespace {

constexpr GUID kSymbolicLinkKey{0x58F0AAD8, 0x22BF, 0x4F8A, {0xBB, 0x3D, 0xD2, 0xC4, 0x97, 0x8C, 0x6E, 0x2F}};
constexpr GUID kFriendlyNameKey{0x60D0E559, 0x52F8, 0x4FA2, {0xBB, 0xCE, 0xAC, 0xDB, 0x34, 0xA8, 0xEC, 0x01}};
constexpr GUID kTopologyInterface{
    0x720D4AC0, 0x7533, 0x11D0, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};

// The interface of a topology as it is published, slot by slot, kept apart from the program's declaration of
// it.
struct PublishedTopology : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_NumCategories(DWORD* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Category(DWORD index, GUID* category) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NumConnections(DWORD* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ConnectionInfo(DWORD index, void* connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NodeName(DWORD node, WCHAR* name, DWORD size,
                                                   DWORD* nameLength) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NumNodes(DWORD* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NodeType(DWORD node, GUID* type) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateNodeInstance(DWORD node, REFIID interfaceId, void** object) = 0;
};

// Counts references, and writes into the journal when the last one is given back.
class References {
  public:
    References(CallJournal& journal, std::string name) : journal_(journal), name_(std::move(name)) {}

    ULONG Add() { return static_cast<ULONG>(++count_); }
    ULONG Release() {
        const long left = --count_;
        if (left == 0) {
            journal_.Add(name_ + " released");
        }
        return static_cast<ULONG>(left);
    }
    [[nodiscard]] long Count() const { return count_; }

  private:
    CallJournal& journal_;
    std::string name_;
    std::atomic<long> count_{0};
};

}  // namespace

class FakeCamera::Topology final : public PublishedTopology {
  public:
    explicit Topology(FakeCamera& camera) : camera_(camera), references_(camera.journal_, "topology") {}
    virtual ~Topology() = default;

    [[nodiscard]] long References() const { return references_.Count(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override {
        *object = nullptr;
        if (interfaceId != __uuidof(IUnknown) && interfaceId != kTopologyInterface) {
            return E_NOINTERFACE;
        }
        *object = static_cast<PublishedTopology*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return references_.Add(); }
    ULONG STDMETHODCALLTYPE Release() override { return references_.Release(); }

    HRESULT STDMETHODCALLTYPE get_NumCategories(DWORD*) override { return Unexpected("get_NumCategories"); }
    HRESULT STDMETHODCALLTYPE get_Category(DWORD, GUID*) override { return Unexpected("get_Category"); }
    HRESULT STDMETHODCALLTYPE get_NumConnections(DWORD*) override { return Unexpected("get_NumConnections"); }
    HRESULT STDMETHODCALLTYPE get_ConnectionInfo(DWORD, void*) override {
        return Unexpected("get_ConnectionInfo");
    }
    HRESULT STDMETHODCALLTYPE get_NodeName(DWORD, WCHAR*, DWORD, DWORD*) override {
        return Unexpected("get_NodeName");
    }
    HRESULT STDMETHODCALLTYPE get_NumNodes(DWORD* count) override {
        camera_.journal_.Add("get_NumNodes");
        if (FAILED(camera_.results.nodeCount)) {
            return camera_.results.nodeCount;
        }
        *count = static_cast<DWORD>(camera_.nodes_.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_NodeType(DWORD node, GUID* type) override {
        camera_.journal_.Add("get_NodeType(" + std::to_string(node) + ")");
        if (node >= camera_.nodes_.size()) {
            return E_INVALIDARG;
        }
        const Node& found = At(node);
        if (found.givesType) {
            *type = found.type;
        }
        return found.typeResult;
    }
    HRESULT STDMETHODCALLTYPE CreateNodeInstance(DWORD node, REFIID interfaceId, void** object) override {
        camera_.journal_.Add("CreateNodeInstance(" + std::to_string(node) + ", " + GuidText(interfaceId) +
                             ")");
        *object = nullptr;
        if (node >= camera_.nodes_.size()) {
            return E_INVALIDARG;
        }
        Node& found = At(node);
        return FAILED(found.createResult) || !found.givesInstance
                   ? found.createResult
                   : found.control.QueryInterface(interfaceId, object);
    }

  private:
    [[nodiscard]] Node& At(DWORD node) {
        return *std::next(camera_.nodes_.begin(), static_cast<std::ptrdiff_t>(node));
    }
    HRESULT Unexpected(const char* call) {
        camera_.journal_.Add(call);
        return E_NOTIMPL;
    }

    FakeCamera& camera_;
    test_support::References references_;
};

class FakeCamera::Source final : public IMFMediaSource {
  public:
    explicit Source(FakeCamera& camera) : camera_(camera), references_(camera.journal_, "source") {}
    virtual ~Source() = default;

    [[nodiscard]] long References() const { return references_.Count(); }
    [[nodiscard]] int Shutdowns() const { return shutdowns_; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override {
        *object = nullptr;
        if (interfaceId == __uuidof(IUnknown) || interfaceId == __uuidof(IMFMediaSource)) {
            *object = static_cast<IMFMediaSource*>(this);
            AddRef();
            return S_OK;
        }
        camera_.journal_.Add("source QueryInterface(" + GuidText(interfaceId) + ")");
        if (interfaceId != kTopologyInterface) {
            return E_NOINTERFACE;
        }
        return FAILED(camera_.results.topology) || !camera_.results.givesTopology
                   ? camera_.results.topology
                   : camera_.topology_->QueryInterface(interfaceId, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return references_.Add(); }
    ULONG STDMETHODCALLTYPE Release() override { return references_.Release(); }

    HRESULT STDMETHODCALLTYPE GetEvent(DWORD, IMFMediaEvent**) override { return Unexpected("GetEvent"); }
    HRESULT STDMETHODCALLTYPE BeginGetEvent(IMFAsyncCallback*, IUnknown*) override {
        return Unexpected("BeginGetEvent");
    }
    HRESULT STDMETHODCALLTYPE EndGetEvent(IMFAsyncResult*, IMFMediaEvent**) override {
        return Unexpected("EndGetEvent");
    }
    HRESULT STDMETHODCALLTYPE QueueEvent(MediaEventType, REFGUID, HRESULT, const PROPVARIANT*) override {
        return Unexpected("QueueEvent");
    }
    HRESULT STDMETHODCALLTYPE GetCharacteristics(DWORD*) override { return Unexpected("GetCharacteristics"); }
    HRESULT STDMETHODCALLTYPE CreatePresentationDescriptor(IMFPresentationDescriptor**) override {
        return Unexpected("CreatePresentationDescriptor");
    }
    HRESULT STDMETHODCALLTYPE Start(IMFPresentationDescriptor*, const GUID*, const PROPVARIANT*) override {
        return Unexpected("Start");
    }
    HRESULT STDMETHODCALLTYPE Stop() override { return Unexpected("Stop"); }
    HRESULT STDMETHODCALLTYPE Pause() override { return Unexpected("Pause"); }
    HRESULT STDMETHODCALLTYPE Shutdown() override {
        camera_.journal_.Add("source Shutdown");
        ++shutdowns_;
        return S_OK;
    }

  private:
    HRESULT Unexpected(const char* call) {
        camera_.journal_.Add(call);
        return E_NOTIMPL;
    }

    FakeCamera& camera_;
    test_support::References references_;
    std::atomic<int> shutdowns_{0};
};

// A real attribute store would do; the texts come from the camera, so that a test can fail them and sees
// whether they were freed.
class FakeCamera::Activation final : public ForwardingAttributes<IMFActivate> {
  public:
    Activation(FakeCamera& camera, std::string name)
        : ForwardingAttributes(nullptr),
          camera_(camera),
          name_(std::move(name)),
          references_(camera.journal_, name_) {}

    [[nodiscard]] long References() const { return references_.Count(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override {
        *object = nullptr;
        if (interfaceId != __uuidof(IUnknown) && interfaceId != __uuidof(IMFAttributes) &&
            interfaceId != __uuidof(IMFActivate)) {
            return E_NOINTERFACE;
        }
        *object = static_cast<IMFActivate*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return references_.Add(); }
    ULONG STDMETHODCALLTYPE Release() override { return references_.Release(); }

    HRESULT STDMETHODCALLTYPE GetAllocatedString(REFGUID key, LPWSTR* value, UINT32* length) override {
        camera_.journal_.Add(name_ + " GetAllocatedString(" + GuidText(key) + ")");
        if (key == kSymbolicLinkKey) {
            return Give(camera_.results.symbolicLink, camera_.symbolicLink_, value, length);
        }
        if (key == kFriendlyNameKey) {
            return Give(camera_.results.friendlyName, camera_.friendlyName_, value, length);
        }
        return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    }
    HRESULT STDMETHODCALLTYPE ActivateObject(REFIID interfaceId, void** object) override {
        camera_.journal_.Add(name_ + " ActivateObject(" + GuidText(interfaceId) + ")");
        *object = nullptr;
        if (FAILED(camera_.results.activate) || !camera_.results.givesSource) {
            return camera_.results.activate;
        }
        const HRESULT result = camera_.source_->QueryInterface(interfaceId, object);
        return FAILED(result) ? result : camera_.results.activate;
    }
    HRESULT STDMETHODCALLTYPE ShutdownObject() override {
        camera_.journal_.Add(name_ + " ShutdownObject");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE DetachObject() override {
        camera_.journal_.Add(name_ + " DetachObject");
        return S_OK;
    }

  private:
    HRESULT Give(HRESULT result, const std::wstring& text, LPWSTR* value, UINT32* length) {
        if (FAILED(result) || !camera_.results.givesTexts) {
            return result;
        }
        *value = camera_.memory_.AllocateText(text);
        *length = static_cast<UINT32>(text.size());
        return result;
    }

    FakeCamera& camera_;
    std::string name_;
    test_support::References references_;
};

FakeCamera::FakeCamera(CallJournal& journal, TaskMemory& memory, std::wstring symbolicLink,
                       std::wstring friendlyName)
    : journal_(journal),
      memory_(memory),
      symbolicLink_(std::move(symbolicLink)),
      friendlyName_(std::move(friendlyName)),
      topology_(std::make_unique<Topology>(*this)),
      source_(std::make_unique<Source>(*this)),
      listedActivation_(std::make_unique<Activation>(*this, "listed activation")),
      ownActivation_(std::make_unique<Activation>(*this, "own activation")) {}

FakeCamera::~FakeCamera() = default;

FakeCamera::Node& FakeCamera::AddNode(const GUID& type) {
    Node& node = nodes_.emplace_back();
    node.type = type;
    node.control.OnLastRelease(
        [this, name = "node " + std::to_string(nodes_.size() - 1)] { journal_.Add(name + " released"); });
    return node;
}

FakeCamera::Node& FakeCamera::AddExtensionUnit() {
    Node& node = AddNode(kDeviceSpecificNode);
    node.control.SetAnswer([this](const KsCall& call) { return firmware_.Answer(call); });
    return node;
}

long FakeCamera::ListedActivationReferences() const {
    return listedActivation_->References();
}

long FakeCamera::OwnActivationReferences() const {
    return ownActivation_->References();
}

long FakeCamera::SourceReferences() const {
    return source_->References();
}

long FakeCamera::TopologyReferences() const {
    return topology_->References();
}

long FakeCamera::References() const {
    long references =
        ListedActivationReferences() + OwnActivationReferences() + SourceReferences() + TopologyReferences();
    for (const Node& node : nodes_) {
        references += node.control.References();
    }
    return references;
}

int FakeCamera::Shutdowns() const {
    return source_->Shutdowns();
}

IMFActivate* FakeCamera::ListedActivation() {
    return listedActivation_.get();
}

IMFActivate* FakeCamera::OwnActivation() {
    return ownActivation_.get();
}

}  // namespace test_support
