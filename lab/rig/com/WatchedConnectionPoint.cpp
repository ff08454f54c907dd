#include "lab/rig/com/WatchedConnectionPoint.h"

#include <utility>

namespace lab::rig {

WatchedConnectionPoint::WatchedConnectionPoint(ComLibrary& library,
                                               Microsoft::WRL::ComPtr<IConnectionPoint> proxy)
    : GivenObject(library, "IConnectionPoint"), proxy_(std::move(proxy)) {}

WatchedConnectionPoint::~WatchedConnectionPoint() {
    LetGo(proxy_);
}

HRESULT WatchedConnectionPoint::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (!IsCalled("QueryInterface")) {
        return CO_E_OBJNOTCONNECTED;
    }
    if (iid != __uuidof(IUnknown) && iid != __uuidof(IConnectionPoint)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IConnectionPoint*>(this);
    AddReference();
    return S_OK;
}

HRESULT WatchedConnectionPoint::GetConnectionInterface(IID* events) {
    return IsCalled("GetConnectionInterface") ? proxy_->GetConnectionInterface(events) : CO_E_OBJNOTCONNECTED;
}

HRESULT WatchedConnectionPoint::GetConnectionPointContainer(IConnectionPointContainer** container) {
    if (container != nullptr) {
        *container = nullptr;
    }
    return IsCalled("GetConnectionPointContainer") ? E_NOTIMPL : CO_E_OBJNOTCONNECTED;
}

HRESULT WatchedConnectionPoint::Advise(IUnknown* sink, DWORD* cookie) {
    return IsCalled("Advise") ? proxy_->Advise(sink, cookie) : CO_E_OBJNOTCONNECTED;
}

HRESULT WatchedConnectionPoint::Unadvise(DWORD cookie) {
    return IsCalled("Unadvise") ? proxy_->Unadvise(cookie) : CO_E_OBJNOTCONNECTED;
}

HRESULT WatchedConnectionPoint::EnumConnections(IEnumConnections** connections) {
    if (connections != nullptr) {
        *connections = nullptr;
    }
    return IsCalled("EnumConnections") ? E_NOTIMPL : CO_E_OBJNOTCONNECTED;
}

}  // namespace lab::rig
