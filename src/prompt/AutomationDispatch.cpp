#include "prompt/AutomationDispatch.h"

#include <algorithm>
#include <cstddef>
#include <cwchar>
#include <mutex>
#include <new>
#include <utility>

#include <oleauto.h>

Microsoft::WRL::ComPtr<AutomationDispatch> AutomationDispatch::Create(CCmdTarget::DispatchMap dispatchMap,
                                                                      CCmdTarget::InterfaceMap interfaceMap) {
    Microsoft::WRL::ComPtr<AutomationDispatch> dispatch;
    // Not Attach(): whether that takes over the reference or adds one depends on the platform's headers.
    *dispatch.GetAddressOf() = new AutomationDispatch(std::move(dispatchMap), std::move(interfaceMap));
    return dispatch;
}

AutomationDispatch::AutomationDispatch(CCmdTarget::DispatchMap dispatchMap,
                                       CCmdTarget::InterfaceMap interfaceMap)
    : dispatchMap_(std::move(dispatchMap)), interfaceMap_(std::move(interfaceMap)) {
    // winpthreads sets a shared lock up at its first use, and fails the second of two threads that make that
    // use at the same time.
    const std::shared_lock firstUse(lock_);
}

void AutomationDispatch::Disconnect() {
    const std::unique_lock guard(lock_);
    connected_ = false;
}

HRESULT AutomationDispatch::QueryInterface(REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    const bool isMapped =
        std::any_of(interfaceMap_.begin(), interfaceMap_.end(),
                    [&interfaceId](const IID& mapped) { return IsEqualGUID(mapped, interfaceId) != FALSE; });
    if (!isMapped && interfaceId != IID_IUnknown && interfaceId != IID_IDispatch) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IDispatch*>(this);
    AddRef();
    return S_OK;
}

ULONG AutomationDispatch::AddRef() {
    return ++references_;
}

ULONG AutomationDispatch::Release() {
    const ULONG remaining = --references_;
    if (remaining == 0) {
        delete this;
    }
    return remaining;
}

HRESULT AutomationDispatch::GetTypeInfoCount(UINT* count) {
    if (count == nullptr) {
        return E_POINTER;
    }
    *count = 0;
    return S_OK;
}

HRESULT AutomationDispatch::GetTypeInfo(UINT, LCID, ITypeInfo** typeInfo) {
    if (typeInfo != nullptr) {
        *typeInfo = nullptr;
    }
    return E_NOTIMPL;
}

HRESULT AutomationDispatch::GetIDsOfNames(REFIID, LPOLESTR* names, UINT nameCount, LCID, DISPID* ids) {
    if (names == nullptr || ids == nullptr || nameCount == 0 || names[0] == nullptr) {
        return E_INVALIDARG;
    }
    // The methods' parameters have no names: only the first name can be known.
    std::fill_n(ids, nameCount, DISPID_UNKNOWN);
    for (std::size_t index = 0; index < dispatchMap_.size(); ++index) {
        if (_wcsicmp(dispatchMap_[index].name.c_str(), names[0]) == 0) {
            ids[0] = static_cast<DISPID>(index + 1);
        }
    }
    return ids[0] != DISPID_UNKNOWN && nameCount == 1 ? S_OK : DISP_E_UNKNOWNNAME;
}

HRESULT AutomationDispatch::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* parameters,
                                   VARIANT* result, EXCEPINFO*, UINT* badArgument) {
    if (id < 1 || static_cast<std::size_t>(id) > dispatchMap_.size() || (flags & DISPATCH_METHOD) == 0) {
        return DISP_E_MEMBERNOTFOUND;
    }
    if (parameters == nullptr || parameters->cArgs != 1 || parameters->rgvarg == nullptr ||
        parameters->cNamedArgs != 0) {
        return DISP_E_BADPARAMCOUNT;
    }
    VARIANT argument;
    VariantInit(&argument);
    if (FAILED(VariantChangeType(&argument, &parameters->rgvarg[0], 0, VT_I4))) {
        if (badArgument != nullptr) {
            *badArgument = 0;
        }
        return DISP_E_TYPEMISMATCH;
    }

    const std::shared_lock guard(lock_);
    if (!connected_) {
        return CO_E_OBJNOTCONNECTED;
    }
    try {
        const LONG answer = dispatchMap_[static_cast<std::size_t>(id) - 1].method(V_I4(&argument));
        if (result != nullptr) {
            VariantInit(result);
            V_VT(result) = VT_I4;
            V_I4(result) = answer;
        }
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}
