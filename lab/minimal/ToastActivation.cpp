#include "lab/minimal/ToastActivation.h"

#include <VeyraCameraToast.h>

#include <ole2.h>

namespace lab {

ToastActivation::ToastActivation() : hasCom_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
    if (!hasCom_) {
        return;
    }
    CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                         RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    if (SUCCEEDED(CoCreateInstance(__uuidof(ToastCntr), nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown,
                                   reinterpret_cast<void**>(controller_.GetAddressOf())))) {
        OleRun(controller_.Get());
    }
}

ToastActivation::~ToastActivation() {
    controller_.Reset();
    if (hasCom_) {
        CoUninitialize();
    }
}

}  // namespace lab
