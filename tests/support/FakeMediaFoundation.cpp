#include "tests/support/FakeMediaFoundation.h"

#include "tests/support/ForwardingAttributes.h"
#include "tests/support/GuidText.h"
#include "tests/support/Text.h"

#include <mfapi.h>
#include <mferror.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace test_support {
namespace {

constexpr GUID kSourceTypeKey{0xC60AC5FE, 0x252A, 0x478F, {0xA0, 0xEF, 0xBC, 0x8F, 0xA5, 0xF7, 0xCA, 0xD3}};
constexpr GUID kVideoCapture{0x8AC3587A, 0x4AE7, 0x42D8, {0x99, 0xE0, 0x0A, 0x60, 0x13, 0xEE, 0xF9, 0x0F}};
constexpr GUID kCategoryKey{0x77F0AE69, 0xC3BD, 0x4509, {0x94, 0x1D, 0x46, 0x7E, 0x4D, 0x24, 0x89, 0x9E}};
constexpr GUID kSensorCamera{0x24E552D7, 0x6523, 0x47F7, {0xA6, 0x47, 0xD3, 0x46, 0x5B, 0xF1, 0xF5, 0xCA}};
constexpr GUID kSymbolicLinkKey{0x58F0AAD8, 0x22BF, 0x4F8A, {0xBB, 0x3D, 0xD2, 0xC4, 0x97, 0x8C, 0x6E, 0x2F}};
constexpr HRESULT kAttributeNotFound = static_cast<HRESULT>(0xC00D36E6);

bool Holds(IMFAttributes& attributes, const GUID& key, const GUID& wanted) {
    GUID value{};
    return SUCCEEDED(attributes.GetGUID(key, &value)) && value == wanted;
}

std::string Count(IMFAttributes* attributes) {
    UINT32 count = 0;
    attributes->GetCount(&count);
    return "(" + std::to_string(count) + " attributes)";
}

std::wstring TextOf(IMFAttributes& attributes, const GUID& key) {
    UINT32 length = 0;
    if (FAILED(attributes.GetStringLength(key, &length))) {
        return {};
    }
    std::wstring text(length + 1, L'\0');
    attributes.GetString(key, text.data(), length + 1, nullptr);
    text.resize(length);
    return text;
}

}  // namespace

class FakeMediaFoundation::Attributes final : public ForwardingAttributes<IMFAttributes> {
  public:
    Attributes(FakeMediaFoundation& owner, Microsoft::WRL::ComPtr<IMFAttributes> store)
        : ForwardingAttributes(std::move(store)), owner_(owner) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override {
        *object = nullptr;
        if (interfaceId != __uuidof(IUnknown) && interfaceId != __uuidof(IMFAttributes)) {
            return E_NOINTERFACE;
        }
        *object = static_cast<IMFAttributes*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) {
            {
                const std::scoped_lock guard(owner_.lock_);
                --owner_.attributeStores_;
            }
            delete this;
        }
        return left;
    }

    HRESULT STDMETHODCALLTYPE SetGUID(REFGUID key, REFGUID value) override {
        owner_.journal_.Add("SetGUID(" + GuidText(key) + ", " + GuidText(value) + ")");
        return FAILED(owner_.setGuidResult_) ? owner_.setGuidResult_
                                             : ForwardingAttributes::SetGUID(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetString(REFGUID key, LPCWSTR value) override {
        owner_.journal_.Add("SetString(" + GuidText(key) + ", \"" + Narrow(value) + "\")");
        return FAILED(owner_.setStringResult_) ? owner_.setStringResult_
                                               : ForwardingAttributes::SetString(key, value);
    }

  private:
    ~Attributes() override = default;

    FakeMediaFoundation& owner_;
    std::atomic<ULONG> references_{1};
};

FakeMediaFoundation::FakeMediaFoundation(Platform platform)
    : isStarted_(platform == Platform::Started),
      startup_("MFStartup", &OnStartup),
      createAttributes_("MFCreateAttributes", &OnCreateAttributes),
      enumDeviceSources_("MFEnumDeviceSources", &OnEnumDeviceSources),
      createDeviceSourceActivate_("MFCreateDeviceSourceActivate", &OnCreateDeviceSourceActivate) {}

FakeCamera& FakeMediaFoundation::AddCamera(std::wstring symbolicLink, std::wstring friendlyName) {
    FakeCamera& camera = AddPlainCamera(std::move(symbolicLink), std::move(friendlyName));
    camera.AddExtensionUnit();
    return camera;
}

FakeCamera& FakeMediaFoundation::AddPlainCamera(std::wstring symbolicLink, std::wstring friendlyName) {
    FakeCamera& camera = AddBareCamera(std::move(symbolicLink), std::move(friendlyName));
    camera.AddNode(kVideoProcessingNode);
    camera.isSensorCamera = true;
    camera.isVideoCapture = true;
    return camera;
}

FakeCamera& FakeMediaFoundation::AddBareCamera(std::wstring symbolicLink, std::wstring friendlyName) {
    const std::scoped_lock guard(lock_);
    FakeCamera& camera =
        cameras_.emplace_back(journal_, memory_, std::move(symbolicLink), std::move(friendlyName));
    camera.isSensorCamera = false;
    camera.isVideoCapture = false;
    plugged_.push_back(&camera);
    return camera;
}

void FakeMediaFoundation::UnplugAll() {
    const std::scoped_lock guard(lock_);
    plugged_.clear();
}

long FakeMediaFoundation::References() const {
    const std::scoped_lock guard(lock_);
    long references = attributeStores_;
    for (const FakeCamera& camera : cameras_) {
        references += camera.References();
    }
    return references;
}

long FakeMediaFoundation::AttributeStores() const {
    const std::scoped_lock guard(lock_);
    return attributeStores_;
}

HRESULT FakeMediaFoundation::List(bool sensorCamerasOnly, IMFActivate**& sources, UINT32& count) {
    std::vector<FakeCamera*> listed;
    std::copy_if(plugged_.begin(), plugged_.end(), std::back_inserter(listed), [&](const FakeCamera* camera) {
        return sensorCamerasOnly ? camera->isSensorCamera : camera->isVideoCapture;
    });
    if (listed.empty()) {
        return S_OK;
    }
    sources = static_cast<IMFActivate**>(memory_.Allocate(listed.size() * sizeof(IMFActivate*)));
    for (std::size_t index = 0; index < listed.size(); ++index) {
        sources[index] = listed[index]->ListedActivation();
        sources[index]->AddRef();
    }
    count = static_cast<UINT32>(listed.size());
    return S_OK;
}

FakeCamera* FakeMediaFoundation::Find(const std::wstring& symbolicLink) {
    const auto found = std::find_if(
        plugged_.begin(), plugged_.end(),
        [&symbolicLink](const FakeCamera* camera) { return camera->SymbolicLink() == symbolicLink; });
    return found == plugged_.end() ? nullptr : *found;
}

HRESULT WINAPI FakeMediaFoundation::OnStartup(ULONG version, DWORD flags) {
    FakeMediaFoundation& fake = *current_;
    fake.journal_.Add("MFStartup(0x" + Hex(version) + ", " + std::to_string(flags) + ")");
    const std::scoped_lock guard(fake.lock_);
    const auto chosen = fake.startupResults_.find(++fake.startupCalls_);
    if (chosen != fake.startupResults_.end()) {
        return chosen->second;
    }
    fake.isStarted_ = true;
    return S_OK;
}

HRESULT WINAPI FakeMediaFoundation::OnCreateAttributes(IMFAttributes** attributes, UINT32 room) {
    FakeMediaFoundation& fake = *current_;
    fake.journal_.Add("MFCreateAttributes(" + std::to_string(room) + ")");
    const std::scoped_lock guard(fake.lock_);
    *attributes = nullptr;
    const auto chosen = fake.createAttributesResults_.find(++fake.createAttributesCalls_);
    if (chosen != fake.createAttributesResults_.end()) {
        return chosen->second;
    }
    Microsoft::WRL::ComPtr<IMFAttributes> store;
    const HRESULT result = fake.createAttributes_.Original<decltype(::MFCreateAttributes)>()(&store, room);
    if (SUCCEEDED(result)) {
        *attributes = new Attributes(fake, store);
        ++fake.attributeStores_;
    }
    return result;
}

HRESULT WINAPI FakeMediaFoundation::OnEnumDeviceSources(IMFAttributes* attributes, IMFActivate*** sources,
                                                        UINT32* count) {
    FakeMediaFoundation& fake = *current_;
    fake.journal_.Add("MFEnumDeviceSources" + Count(attributes));
    *sources = nullptr;
    *count = 0;
    const bool sensorCamerasOnly = Holds(*attributes, kCategoryKey, kSensorCamera);
    const bool isComplete = Holds(*attributes, kSourceTypeKey, kVideoCapture);
    const std::scoped_lock guard(fake.lock_);
    if (!fake.isStarted_) {
        return MF_E_PLATFORM_NOT_INITIALIZED;
    }
    const auto chosen = fake.enumerationResults_.find(++fake.enumerationCalls_);
    if (chosen != fake.enumerationResults_.end()) {
        return chosen->second;
    }
    return isComplete ? fake.List(sensorCamerasOnly, *sources, *count) : kAttributeNotFound;
}

HRESULT WINAPI FakeMediaFoundation::OnCreateDeviceSourceActivate(IMFAttributes* attributes,
                                                                 IMFActivate** activation) {
    FakeMediaFoundation& fake = *current_;
    fake.journal_.Add("MFCreateDeviceSourceActivate" + Count(attributes));
    *activation = nullptr;
    if (!Holds(*attributes, kSourceTypeKey, kVideoCapture)) {
        return kAttributeNotFound;
    }
    const std::wstring link = TextOf(*attributes, kSymbolicLinkKey);
    const std::scoped_lock guard(fake.lock_);
    if (!fake.isStarted_) {
        return MF_E_PLATFORM_NOT_INITIALIZED;
    }
    FakeCamera* const camera = fake.Find(link);
    if (camera == nullptr) {
        return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    }
    if (FAILED(camera->results.ownActivation) || !camera->results.givesOwnActivation) {
        return camera->results.ownActivation;
    }
    *activation = camera->OwnActivation();
    (*activation)->AddRef();
    return S_OK;
}

}  // namespace test_support
