#include "lab/toast/UserRespondConnectionPoint.h"

#include <olectl.h>

#include <utility>

#include "VeyraCameraToast.h"
#include "lab/toast/ComBoundary.h"

namespace lab::toast {

UserRespondConnectionPoint::UserRespondConnectionPoint(IConnectionPointContainer& container,
                                                       std::shared_ptr<ServerParts> parts)
    : container_(container), parts_(std::move(parts)) {}

UserRespondConnectionPoint::~UserRespondConnectionPoint() {
    parts_->sinks.RemoveAllOf(this);
}

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
    *interfaceId = __uuidof(IToastCntrEvents);
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
        AdvisedSinks::Sink events;
        HRESULT result = sink->QueryInterface(__uuidof(IToastCntrEvents), &events);
        if (FAILED(result)) {
            result = sink->QueryInterface(__uuidof(IDispatch), &events);
        }
        if (FAILED(result)) {
            return CONNECT_E_CANNOTCONNECT;
        }
        *cookie = parts_->sinks.Add(this, std::move(events));
        parts_->reports.Advised(*cookie);
        return S_OK;
    });
}

STDMETHODIMP UserRespondConnectionPoint::Unadvise(DWORD cookie) {
    return AtComBoundary([&] {
        if (!parts_->sinks.Remove(this, cookie)) {
            return CONNECT_E_NOCONNECTION;
        }
        parts_->reports.Unadvised(cookie);
        parts_->hangs.Pass("Unadvise");
        return S_OK;
    });
}

STDMETHODIMP UserRespondConnectionPoint::EnumConnections(IEnumConnections** connections) {
    if (connections == nullptr) {
        return E_POINTER;
    }
    *connections = nullptr;
    return E_NOTIMPL;
}

}  // namespace lab::toast
