#include "toast/server/ToastTypeInfo.h"

#include <oleauto.h>

#include "prompt/IToastCntr.h"
#include "toast/registration/ProgramPath.h"

namespace toast {

using Microsoft::WRL::ComPtr;

ComPtr<ITypeInfo> LoadToastTypeInfo() {
    ComPtr<ITypeLib> library;
    ComPtr<ITypeInfo> typeInfo;
    if (SUCCEEDED(LoadTypeLibEx(ProgramPath().c_str(), REGKIND_NONE, &library))) {
        library->GetTypeInfoOfGuid(kIidToastCntr, &typeInfo);
    }
    return typeInfo;
}

}  // namespace toast
