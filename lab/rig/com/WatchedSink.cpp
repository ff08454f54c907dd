#include "lab/rig/com/WatchedSink.h"

#include <oleauto.h>

#include <utility>

#include "VeyraCameraToast.h"

namespace lab::rig {
namespace {

constexpr DISPID kUserRespond = 1;

}  // namespace

WatchedSink::WatchedSink(Microsoft::WRL::ComPtr<IDispatch> sink, PromptReports reports)
    : sink_(std::move(sink)), reports_(std::move(reports)) {}

HRESULT WatchedSink::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid != __uuidof(IUnknown) && iid != __uuidof(IDispatch) && iid != __uuidof(IToastCntrEvents)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IDispatch*>(this);
    AddRef();
    return S_OK;
}

ULONG WatchedSink::AddRef() {
    return ++references_;
}

ULONG WatchedSink::Release() {
    const ULONG left = --references_;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT WatchedSink::GetTypeInfoCount(UINT* count) {
    return sink_->GetTypeInfoCount(count);
}

HRESULT WatchedSink::GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) {
    return sink_->GetTypeInfo(index, locale, info);
}

HRESULT WatchedSink::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale, DISPID* ids) {
    return sink_->GetIDsOfNames(iid, names, count, locale, ids);
}

HRESULT WatchedSink::Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                            VARIANT* result, EXCEPINFO* exception, UINT* argument) {
    VARIANT answer;
    VariantInit(&answer);
    if (id == kUserRespond && reports_.answered && parameters != nullptr && parameters->cArgs == 1 &&
        SUCCEEDED(VariantChangeType(&answer, &parameters->rgvarg[0], 0, VT_I4))) {
        reports_.answered(V_I4(&answer));
    }
    if (reports_.handling) {
        reports_.handling(true);
    }
    const HRESULT handled = sink_->Invoke(id, iid, locale, flags, parameters, result, exception, argument);
    if (reports_.handling) {
        reports_.handling(false);
    }
    return handled;
}

}  // namespace lab::rig
