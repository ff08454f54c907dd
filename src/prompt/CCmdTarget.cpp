#include "prompt/CCmdTarget.h"

#include "prompt/AutomationDispatch.h"

#include <utility>

CCmdTarget::CCmdTarget(DispatchMap dispatchMap, InterfaceMap interfaceMap)
    : dispatch_(AutomationDispatch::Create(std::move(dispatchMap), std::move(interfaceMap))) {}

CCmdTarget::~CCmdTarget() {
    DisconnectAutomation();
}

Microsoft::WRL::ComPtr<IUnknown> CCmdTarget::GetControllingUnknown() const {
    return dispatch_.Get();
}

void CCmdTarget::DisconnectAutomation() {
    dispatch_->Disconnect();
}
