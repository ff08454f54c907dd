#pragma once

#include <windows.h>
#include <oleauto.h>

namespace test_support {

[[nodiscard]] inline VARIANT NumberVariant(LONG number) {
    VARIANT variant;
    VariantInit(&variant);
    V_VT(&variant) = VT_I4;
    V_I4(&variant) = number;
    return variant;
}

// Calls a method with one number, as a script does; `result` may be null.
[[nodiscard]] inline HRESULT CallWithNumber(IDispatch& dispatch, DISPID id, LONG number, VARIANT* result) {
    VARIANT argument = NumberVariant(number);
    DISPPARAMS parameters{&argument, nullptr, 1, 0};
    return dispatch.Invoke(id, IID_NULL, LOCALE_NEUTRAL, DISPATCH_METHOD, &parameters, result, nullptr,
                           nullptr);
}

}  // namespace test_support
