#include "toast/server/ToastController.h"

#include <olectl.h>
#include <oleauto.h>

#include <string_view>
#include <utility>

#include "toast/conversation/ShownText.h"
#include "toast/server/ComBoundary.h"
#include "toast/server/ConnectionPointEnumerator.h"
#include "win32/HResultFromWin32.h"

namespace toast {
namespace {

std::wstring_view TextOf(BSTR text) {
    return text == nullptr ? std::wstring_view() : std::wstring_view(text, SysStringLen(text));
}

}  // namespace

ToastController::ToastController(const std::shared_ptr<ServerParts>& parts)
    : hold_(parts->lifetime),
      parts_(parts),
      sinks_(std::make_shared<AdvisedSinks>([this] { return ObjectsUnlessGone(); })),
      id_(parts->clients->Add(sinks_)),
      userRespond_(*this, sinks_) {
    static_cast<void>(parts_->receiver.Post({id_, ClientCame{}}));
}

ToastController::~ToastController() {
    sinks_->ForgetObjects();
    static_cast<void>(parts_->receiver.Post({id_, ClientLeft{}}));
}

STDMETHODIMP ToastController::QueryInterface(REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (interfaceId == __uuidof(IUnknown) || interfaceId == __uuidof(IDispatch) ||
        interfaceId == kIidToastCntr) {
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
    return AtComBoundary([&] {
        return Tell(Question{ShownText(TextOf(cameraVersion)), ShownText(TextOf(imageVersion))});
    });
}

STDMETHODIMP ToastController::NotifyProgress(BSTR status) {
    return AtComBoundary([&] { return Tell(StatusLineOf(TextOf(status))); });
}

STDMETHODIMP ToastController::NotifyComplete() {
    return AtComBoundary([&] { return Tell(DownloadOver{}); });
}

STDMETHODIMP ToastController::EnumConnectionPoints(IEnumConnectionPoints** enumerator) {
    if (enumerator == nullptr) {
        return E_POINTER;
    }
    *enumerator = nullptr;
    return AtComBoundary([&] {
        *enumerator =
            Microsoft::WRL::ComPtr<IEnumConnectionPoints>(new ConnectionPointEnumerator(&userRespond_))
                .Detach();
        return S_OK;
    });
}

STDMETHODIMP ToastController::FindConnectionPoint(REFIID interfaceId, IConnectionPoint** point) {
    if (point == nullptr) {
        return E_POINTER;
    }
    if (interfaceId != kIidToastCntrEvents) {
        *point = nullptr;
        return CONNECT_E_NOCONNECTION;
    }
    return userRespond_.QueryInterface(__uuidof(IConnectionPoint), reinterpret_cast<void**>(point));
}

HRESULT ToastController::Tell(decltype(Event::what) what) const {
    return parts_->receiver.Post({id_, std::move(what)}) ? S_OK : win32::HResultFromWin32(ERROR_BUSY);
}

std::vector<Microsoft::WRL::ComPtr<IUnknown>> ToastController::ObjectsUnlessGone() {
    ULONG references = references_;
    while (references > 0 && !references_.compare_exchange_weak(references, references + 1)) {
    }
    std::vector<Microsoft::WRL::ComPtr<IUnknown>> objects;
    if (references > 0) {
        objects = {static_cast<IToastCntr*>(this), &userRespond_};
        Release();
    }
    return objects;
}

}  // namespace toast
