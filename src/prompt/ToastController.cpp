#include "prompt/ToastController.h"

#include <wrl/client.h>

#include <ole2.h>

HRESULT CreateToastController(IToastCntrPtr& server) {
    server = nullptr;
    Microsoft::WRL::ComPtr<IUnknown> unknown;
    HRESULT result = CoCreateInstance(kClsidToastController, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown,
                                      reinterpret_cast<void**>(unknown.GetAddressOf()));
    if (FAILED(result)) {
        return result;
    }
    result = OleRun(unknown.Get());
    if (FAILED(result)) {
        return result;
    }
    IToastCntr* controller = nullptr;
    result = unknown->QueryInterface(kIidToastCntr, reinterpret_cast<void**>(&controller));
    if (FAILED(result)) {
        return result;
    }
    server.Attach(controller);
    return S_OK;
}
