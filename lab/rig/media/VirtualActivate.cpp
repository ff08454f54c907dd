#include "lab/rig/media/VirtualActivate.h"

#include <mfapi.h>

#include <utility>

#include "lab/rig/media/VirtualMediaSource.h"

namespace lab::rig {

VirtualActivate::VirtualActivate(Bus& bus, Contracts& contracts,
                                 Microsoft::WRL::ComPtr<IMFAttributes> attributes)
    : GivenAttributes(contracts.com, "IMFActivate", std::move(attributes)),
      bus_(bus),
      contracts_(contracts) {}

HRESULT VirtualActivate::QueryInterface(REFIID iid, void** object) {
    IsCalled("QueryInterface");
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid != __uuidof(IUnknown) && iid != __uuidof(IMFAttributes) && iid != __uuidof(IMFActivate)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IMFActivate*>(this);
    AddReference();
    return S_OK;
}

HRESULT VirtualActivate::ActivateObject(REFIID iid, void** object) {
    IsCalled("ActivateObject");
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (const HRESULT result = contracts_.media.Check("IMFActivate::ActivateObject"); FAILED(result)) {
        return result;
    }
    const std::lock_guard lock(mutex_);
    if (source_ == nullptr) {
        if (const HRESULT result = CreateSource(); FAILED(result)) {
            return result;
        }
    }
    return source_->QueryInterface(iid, object);
}

HRESULT VirtualActivate::ShutdownObject() {
    IsCalled("ShutdownObject");
    const std::lock_guard lock(mutex_);
    if (source_ != nullptr) {
        source_->Shutdown();
        source_.Reset();
    }
    return S_OK;
}

HRESULT VirtualActivate::DetachObject() {
    IsCalled("DetachObject");
    const std::lock_guard lock(mutex_);
    source_.Reset();
    return S_OK;
}

HRESULT VirtualActivate::CreateSource() {
    wchar_t* link = nullptr;
    UINT32 length = 0;
    const HRESULT result =
        Store().GetAllocatedString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, &link, &length);
    if (FAILED(result)) {
        return result;
    }
    const auto presence = bus_.FindSource({link, length});
    CoTaskMemFree(link);
    if (!presence) {
        return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    }
    // Not Attach: the toolchain's adds a reference.
    *source_.ReleaseAndGetAddressOf() = new VirtualMediaSource(bus_, contracts_.com, *presence);
    return S_OK;
}

}  // namespace lab::rig
