#include "lab/rig/com/WatchedToastController.h"

#include <oleauto.h>

#include <string>
#include <utility>

#include "lab/rig/com/LastCall.h"
#include "lab/rig/com/WatchedConnectionPointContainer.h"

namespace lab::rig {

using Microsoft::WRL::ComPtr;

WatchedToastController::WatchedToastController(ComLibrary& library, ComPtr<IUnknown> proxy,
                                               PromptReports reports)
    : GivenObject(library, "IToastCntr"), proxy_(std::move(proxy)), reports_(std::move(reports)) {}

WatchedToastController::~WatchedToastController() {
    AwaitEndOfLastCall();
    LetGo(controller_);
    LetGo(proxy_);
}

HRESULT WatchedToastController::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (!IsCalled("QueryInterface")) {
        return CO_E_OBJNOTCONNECTED;
    }
    if (iid == __uuidof(IConnectionPointContainer)) {
        ComPtr<IConnectionPointContainer> container;
        const HRESULT result =
            proxy_->QueryInterface(iid, reinterpret_cast<void**>(container.GetAddressOf()));
        if (container) {
            *object = static_cast<IConnectionPointContainer*>(
                new WatchedConnectionPointContainer(Library(), this, container, reports_));
        }
        return result;
    }
    if (iid == __uuidof(IToastCntr) || iid == __uuidof(IDispatch)) {
        const std::lock_guard lock(mutex_);
        if (controller_ == nullptr) {
            const HRESULT result = proxy_->QueryInterface(
                __uuidof(IToastCntr), reinterpret_cast<void**>(controller_.GetAddressOf()));
            if (FAILED(result)) {
                return result;
            }
        }
    } else if (iid != __uuidof(IUnknown)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IToastCntr*>(this);
    AddReference();
    return S_OK;
}

HRESULT WatchedToastController::GetTypeInfoCount(UINT* count) {
    return IsCalled("GetTypeInfoCount") ? controller_->GetTypeInfoCount(count) : CO_E_OBJNOTCONNECTED;
}

HRESULT WatchedToastController::GetTypeInfo(UINT, LCID, ITypeInfo** info) {
    if (info != nullptr) {
        *info = nullptr;
    }
    return IsCalled("GetTypeInfo") ? E_NOTIMPL : CO_E_OBJNOTCONNECTED;
}

HRESULT WatchedToastController::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                                              DISPID* ids) {
    return IsCalled("GetIDsOfNames") ? controller_->GetIDsOfNames(iid, names, count, locale, ids)
                                     : CO_E_OBJNOTCONNECTED;
}

HRESULT WatchedToastController::Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                                       VARIANT* result, EXCEPINFO* exception, UINT* argument) {
    return IsCalled("Invoke")
               ? controller_->Invoke(id, iid, locale, flags, parameters, result, exception, argument)
               : CO_E_OBJNOTCONNECTED;
}

HRESULT WatchedToastController::ShowUpdatePrompt(BSTR cameraVersion, BSTR imageVersion) {
    if (!IsCalled("ShowUpdatePrompt")) {
        return CO_E_OBJNOTCONNECTED;
    }
    const HRESULT result = controller_->ShowUpdatePrompt(cameraVersion, imageVersion);
    Tell(result, "ShowUpdatePrompt", {cameraVersion, imageVersion});
    return result;
}

HRESULT WatchedToastController::NotifyProgress(BSTR status) {
    if (!IsCalled("NotifyProgress")) {
        return CO_E_OBJNOTCONNECTED;
    }
    const HRESULT result = controller_->NotifyProgress(status);
    Tell(result, "NotifyProgress", {status});
    return result;
}

HRESULT WatchedToastController::NotifyComplete() {
    if (!IsCalled("NotifyComplete")) {
        return CO_E_OBJNOTCONNECTED;
    }
    const HRESULT result = controller_->NotifyComplete();
    Tell(result, "NotifyComplete", {});
    return result;
}

void WatchedToastController::Tell(HRESULT result, std::string_view method,
                                  const std::vector<BSTR>& texts) const {
    if (!reports_.called || FAILED(result)) {
        return;
    }
    std::vector<std::wstring> copies;
    for (const BSTR text : texts) {
        copies.emplace_back(text == nullptr ? L"" : text, SysStringLen(text));
    }
    reports_.called(method, copies);
}

}  // namespace lab::rig
