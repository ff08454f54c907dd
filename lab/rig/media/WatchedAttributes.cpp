#include "lab/rig/media/WatchedAttributes.h"

#include <utility>

namespace lab::rig {

WatchedAttributes::WatchedAttributes(ComLibrary& library, Microsoft::WRL::ComPtr<IMFAttributes> store)
    : GivenAttributes(library, "IMFAttributes", std::move(store)) {}

HRESULT WatchedAttributes::QueryInterface(REFIID iid, void** object) {
    IsCalled("QueryInterface");
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid != __uuidof(IUnknown) && iid != __uuidof(IMFAttributes)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IMFAttributes*>(this);
    AddReference();
    return S_OK;
}

}  // namespace lab::rig
