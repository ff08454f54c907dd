#include "lab/toast/ToastController.h"

#include <olectl.h>
#include <oleauto.h>

#include "lab/toast/ComBoundary.h"
#include "toast/server/ConnectionPointEnumerator.h"

namespace lab::toast {

ToastController::ToastController(const std::shared_ptr<ServerParts>& parts)
    : hold_(parts->lifetime), parts_(parts), userRespond_(*this, parts) {}

STDMETHODIMP ToastController::QueryInterface(REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (interfaceId == __uuidof(IUnknown) || interfaceId == __uuidof(IDispatch) ||
        interfaceId == __uuidof(IToastCntr)) {
        *object = static_cast<IToastCntr*>(this);
    } else if (interfaceId == __uuidof(IConnectionPointContainer)) {
        *object = static_cast<IConnectionPointContainer*>(this);
    } else {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) ToastController::AddRef() {
    return ++references_;
}

STDMETHODIMP_(ULONG) ToastController::Release() {
    const ULONG left = --references_;
    if (left == 0) {
        delete this;
    }
    return left;
}

STDMETHODIMP ToastController::GetTypeInfoCount(UINT* count) {
    if (count == nullptr) {
        return E_POINTER;
    }
    *count = 1;
    return S_OK;
}

STDMETHODIMP ToastController::GetTypeInfo(UINT index, LCID, ITypeInfo** typeInfo) {
    if (typeInfo == nullptr) {
        return E_POINTER;
    }
    *typeInfo = nullptr;
    return index == 0 ? parts_->typeInfo.CopyTo(typeInfo) : DISP_E_BADINDEX;
}

STDMETHODIMP ToastController::GetIDsOfNames(REFIID reserved, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
    if (reserved != GUID{}) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    return parts_->typeInfo->GetIDsOfNames(names, count, ids);
}

STDMETHODIMP ToastController::Invoke(DISPID id, REFIID reserved, LCID, WORD flags, DISPPARAMS* parameters,
                                     VARIANT* result, EXCEPINFO* exception, UINT* wrongArgument) {
    if (reserved != GUID{}) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    return parts_->typeInfo->Invoke(static_cast<IToastCntr*>(this), id, flags, parameters, result, exception,
                                    wrongArgument);
}

STDMETHODIMP ToastController::ShowUpdatePrompt(BSTR cameraVersion, BSTR imageVersion) {
    return AtComBoundary([&] { return Answer("ShowUpdatePrompt", {cameraVersion, imageVersion}); });
}

STDMETHODIMP ToastController::NotifyProgress(BSTR status) {
    return AtComBoundary([&] { return Answer("NotifyProgress", {status}); });
}

STDMETHODIMP ToastController::NotifyComplete() {
    return AtComBoundary([&] { return Answer("NotifyComplete", {}); });
}

STDMETHODIMP ToastController::EnumConnectionPoints(IEnumConnectionPoints** enumerator) {
    if (enumerator == nullptr) {
        return E_POINTER;
    }
    *enumerator = nullptr;
    return AtComBoundary([&] {
        *enumerator = Microsoft::WRL::ComPtr<IEnumConnectionPoints>(
                          new ::toast::ConnectionPointEnumerator(&userRespond_))
                          .Detach();
        return S_OK;
    });
}

STDMETHODIMP ToastController::FindConnectionPoint(REFIID interfaceId, IConnectionPoint** point) {
    if (point == nullptr) {
        return E_POINTER;
    }
    if (interfaceId != __uuidof(IToastCntrEvents)) {
        *point = nullptr;
        return CONNECT_E_NOCONNECTION;
    }
    return userRespond_.QueryInterface(__uuidof(IConnectionPoint), reinterpret_cast<void**>(point));
}

HRESULT ToastController::Answer(const char* method, const std::vector<BSTR>& texts) {
    std::vector<std::wstring> copies;
    for (const BSTR text : texts) {
        copies.emplace_back(text == nullptr ? L"" : text, SysStringLen(text));
    }
    parts_->reports.PromptCall(method, copies);
    parts_->hangs.Pass(method);
    return parts_->failures.ResultOf(method);
}

}  // namespace lab::toast
