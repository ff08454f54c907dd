#include "lab/rig/com/WatchedConnectionPointContainer.h"

#include <utility>

#include "lab/rig/com/WatchedConnectionPoint.h"

namespace lab::rig {

using Microsoft::WRL::ComPtr;

WatchedConnectionPointContainer::WatchedConnectionPointContainer(ComLibrary& library, IUnknown* controller,
                                                                 ComPtr<IConnectionPointContainer> proxy,
                                                                 PromptReports reports)
    : GivenObject(library, "IConnectionPointContainer"),
      controller_(controller),
      proxy_(std::move(proxy)),
      reports_(std::move(reports)) {}

WatchedConnectionPointContainer::~WatchedConnectionPointContainer() {
    LetGo(proxy_);
    LetGo(controller_);
}

HRESULT WatchedConnectionPointContainer::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (!IsCalled("QueryInterface")) {
        return CO_E_OBJNOTCONNECTED;
    }
    if (iid != __uuidof(IConnectionPointContainer)) {
        return controller_->QueryInterface(iid, object);
    }
    *object = static_cast<IConnectionPointContainer*>(this);
    AddReference();
    return S_OK;
}

HRESULT WatchedConnectionPointContainer::EnumConnectionPoints(IEnumConnectionPoints** points) {
    if (points != nullptr) {
        *points = nullptr;
    }
    return IsCalled("EnumConnectionPoints") ? E_NOTIMPL : CO_E_OBJNOTCONNECTED;
}

HRESULT WatchedConnectionPointContainer::FindConnectionPoint(REFIID events, IConnectionPoint** point) {
    if (point == nullptr) {
        return E_POINTER;
    }
    *point = nullptr;
    if (!IsCalled("FindConnectionPoint")) {
        return CO_E_OBJNOTCONNECTED;
    }
    ComPtr<IConnectionPoint> found;
    const HRESULT result = proxy_->FindConnectionPoint(events, found.GetAddressOf());
    if (found) {
        *point = static_cast<IConnectionPoint*>(new WatchedConnectionPoint(Library(), found, reports_));
    }
    return result;
}

}  // namespace lab::rig
