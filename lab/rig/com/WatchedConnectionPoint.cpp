#include "lab/rig/com/WatchedConnectionPoint.h"

#include <utility>

#include "lab/rig/com/LastCall.h"
#include "lab/rig/com/WatchedSink.h"

namespace lab::rig {

using Microsoft::WRL::ComPtr;

WatchedConnectionPoint::WatchedConnectionPoint(ComLibrary& library, ComPtr<IConnectionPoint> proxy,
                                               PromptReports reports)
    : GivenObject(library, "IConnectionPoint"), proxy_(std::move(proxy)), reports_(std::move(reports)) {}

WatchedConnectionPoint::~WatchedConnectionPoint() {
    AwaitEndOfLastCall();
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
    if (!IsCalled("Advise")) {
        return CO_E_OBJNOTCONNECTED;
    }
    ComPtr<IDispatch> dispatch;
    if ((!reports_.answered && !reports_.handling) || sink == nullptr ||
        FAILED(sink->QueryInterface(IID_PPV_ARGS(&dispatch)))) {
        return proxy_->Advise(sink, cookie);
    }
    ComPtr<IDispatch> watched;
    *watched.GetAddressOf() = new WatchedSink(dispatch, reports_);
    return proxy_->Advise(watched.Get(), cookie);
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
