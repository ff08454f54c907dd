#include "toast/server/ToastControllerFactory.h"

#include <utility>

#include "toast/server/ComBoundary.h"
#include "toast/server/ToastController.h"

namespace toast {

ToastControllerFactory::ToastControllerFactory(std::shared_ptr<ServerParts> parts)
    : parts_(std::move(parts)) {}

STDMETHODIMP ToastControllerFactory::QueryInterface(REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (interfaceId != __uuidof(IUnknown) && interfaceId != __uuidof(IClassFactory)) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    *object = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) ToastControllerFactory::AddRef() {
    return ++references_;
}

STDMETHODIMP_(ULONG) ToastControllerFactory::Release() {
    const ULONG left = --references_;
    if (left == 0) {
        delete this;
    }
    return left;
}

STDMETHODIMP ToastControllerFactory::CreateInstance(IUnknown* outer, REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (outer != nullptr) {
        return CLASS_E_NOAGGREGATION;
    }
    return AtComBoundary([&] {
        const Microsoft::WRL::ComPtr<IToastCntr> controller(new ToastController(parts_));
        return controller->QueryInterface(interfaceId, object);
    });
}

STDMETHODIMP ToastControllerFactory::LockServer(BOOL lock) {
    return AtComBoundary([&] {
        if (lock) {
            parts_->lifetime->AddHold();
        } else {
            parts_->lifetime->RemoveHold();
        }
        return S_OK;
    });
}

}  // namespace toast
