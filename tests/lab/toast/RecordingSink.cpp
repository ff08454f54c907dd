#include "tests/lab/toast/RecordingSink.h"

#include <oleauto.h>

#include "VeyraCameraToast.h"

std::optional<RecordingSink::Call> RecordingSink::NextCall(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, patience, [this] { return !calls_.empty(); })) {
        return std::nullopt;
    }
    const Call call = calls_.front();
    calls_.pop();
    return call;
}

STDMETHODIMP RecordingSink::QueryInterface(REFIID interfaceId, void** object) {
    const bool known = interfaceId == __uuidof(IUnknown) ||
                       (interfaceId == __uuidof(IDispatch) && answers_ != Answers::kOnlyUnknown) ||
                       (interfaceId == __uuidof(IToastCntrEvents) && answers_ == Answers::kTheEvents);
    *object = known ? static_cast<IDispatch*>(this) : nullptr;
    if (known) {
        AddRef();
    }
    return known ? S_OK : E_NOINTERFACE;
}

STDMETHODIMP RecordingSink::GetTypeInfoCount(UINT* count) {
    *count = 0;
    return S_OK;
}

STDMETHODIMP RecordingSink::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* parameters,
                                   VARIANT* result, EXCEPINFO*, UINT*) {
    if (action_) {
        action_();
    }
    Call call{id, flags, parameters->cArgs, VT_EMPTY, 0, GetCurrentThreadId()};
    if (call.arguments > 0) {
        call.type = V_VT(&parameters->rgvarg[0]);
        call.code = V_I4(&parameters->rgvarg[0]);
    }
    if (result != nullptr) {
        V_VT(result) = VT_I4;
        V_I4(result) = 0;
    }
    {
        const std::lock_guard lock(mutex_);
        calls_.push(call);
    }
    changed_.notify_all();
    return S_OK;
}
