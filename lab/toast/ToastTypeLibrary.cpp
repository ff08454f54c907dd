#include <initguid.h>

#include "lab/toast/ToastTypeLibrary.h"

#include <oleauto.h>
#include <wrl/client.h>

#include "VeyraCameraToast.h"
#include "lab/toast/ProgramPath.h"

namespace lab::toast {

using Microsoft::WRL::ComPtr;

namespace {

constexpr WORD kMajorVersion = 1;
constexpr WORD kMinorVersion = 0;

bool IsRegistered() {
    BSTR path = nullptr;
    const HRESULT result =
        QueryPathOfRegTypeLib(LIBID_VeyraCameraToast, kMajorVersion, kMinorVersion, LOCALE_NEUTRAL, &path);
    SysFreeString(path);
    return SUCCEEDED(result);
}

}  // namespace

HRESULT RegisterToastTypeLibrary() {
    std::wstring path = ProgramPath();
    ComPtr<ITypeLib> library;
    const HRESULT result = LoadTypeLibEx(path.c_str(), REGKIND_NONE, &library);
    if (FAILED(result)) {
        return result;
    }
    return RegisterTypeLib(library.Get(), path.data(), nullptr);
}

HRESULT UnregisterToastTypeLibrary() {
    if (!IsRegistered()) {
        return S_OK;
    }
    return UnRegisterTypeLib(LIBID_VeyraCameraToast, kMajorVersion, kMinorVersion, LOCALE_NEUTRAL, SYS_WIN64);
}

HRESULT LoadToastTypeInfo(ITypeInfo** typeInfo) {
    ComPtr<ITypeLib> library;
    const HRESULT result =
        LoadRegTypeLib(LIBID_VeyraCameraToast, kMajorVersion, kMinorVersion, LOCALE_NEUTRAL, &library);
    if (FAILED(result)) {
        return result;
    }
    return library->GetTypeInfoOfGuid(__uuidof(IToastCntr), typeInfo);
}

}  // namespace lab::toast
