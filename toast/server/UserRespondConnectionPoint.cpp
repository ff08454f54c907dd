#include "toast/server/UserRespondConnectionPoint.h"

#include <olectl.h>
#include <wrl/client.h>

#include <utility>

#include "prompt/IToastCntr.h"
#include "toast/server/ComBoundary.h"

namespace toast {

UserRespondConnectionPoint::UserRespondConnectionPoint(IConnectionPointContainer& container,
                                                       std::shared_ptr<AdvisedSinks> sinks)
    : container_(container), sinks_(std::move(sinks)) {}

STDMETHODIMP UserRespondConnectionPoint::QueryInterface(REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (interfaceId != __uuidof(IUnknown) && interfaceId != __uuidof(IConnectionPoint)) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    *object = static_cast<IConnectionPoint*>(this);
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) UserRespondConnectionPoint::AddRef() {
    return container_.AddRef();
}

STDMETHODIMP_(ULONG) UserRespondConnectionPoint::Release() {
    return container_.Release();
}

STDMETHODIMP UserRespondConnectionPoint::GetConnectionInterface(IID* interfaceId) {
    if (interfaceId == nullptr) {
        return E_POINTER;
    }
    *interfaceId = kIidToastCntrEvents;
    return S_OK;
}

STDMETHODIMP UserRespondConnectionPoint::GetConnectionPointContainer(IConnectionPointContainer** container) {
    if (container == nullptr) {
        return E_POINTER;
    }
    *container = &container_;
    container_.AddRef();
    return S_OK;
}

STDMETHODIMP UserRespondConnectionPoint::Advise(IUnknown* sink, DWORD* cookie) {
    if (sink == nullptr || cookie == nullptr) {
        return E_POINTER;
    }
    *cookie = 0;
    return AtComBoundary([&] {
        Microsoft::WRL::ComPtr<IDispatch> events;
        HRESULT result =
            sink->QueryInterface(kIidToastCntrEvents, reinterpret_cast<void**>(events.GetAddressOf()));
        if (FAILED(result)) {
            result =
                sink->QueryInterface(__uuidof(IDispatch), reinterpret_cast<void**>(events.GetAddressOf()));
        }
        if (FAILED(result)) {
            return CONNECT_E_CANNOTCONNECT;
        }
        *cookie = sinks_->Add(std::move(events));
        return S_OK;
    });
}

STDMETHODIMP UserRespondConnectionPoint::Unadvise(DWORD cookie) {
    return AtComBoundary([&] { return sinks_->Remove(cookie) ? S_OK : CONNECT_E_NOCONNECTION; });
}

STDMETHODIMP UserRespondConnectionPoint::EnumConnections(IEnumConnections** connections) {
    if (connections == nullptr) {
        return E_POINTER;
    }
    *connections = nullptr;
    return E_NOTIMPL;
}

}  // namespace toast
