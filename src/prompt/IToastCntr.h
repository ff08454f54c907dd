#pragma once

#include <windows.h>
#include <oaidl.h>
#include <comdef.h>
#include <comip.h>

// The toast controller, the out-of-process COM server that shows things to the logged-on user.

inline constexpr CLSID kClsidToastController{
    0x20C4BEF7, 0xCA2C, 0x40F7, {0x9B, 0x2A, 0x33, 0x37, 0x8E, 0x54, 0xE6, 0x8C}};
inline constexpr IID kIidToastCntr{
    0x45E679A1, 0xAE15, 0x45DC, {0x85, 0x4E, 0x13, 0xD9, 0x0F, 0xD8, 0x64, 0xC5}};
// The dispatch interface that the server fires: "UserRespond" (dispatch id 1), one VT_I4 argument, VT_I4
// result.
inline constexpr IID kIidToastCntrEvents{
    0xBAE9D3F9, 0xD047, 0x4A89, {0xB5, 0xAD, 0x86, 0x2D, 0x8A, 0x2B, 0x29, 0xD0}};

// The server's dual interface; the slots behind those of IDispatch are in this order. The BSTRs stay the
// caller's. Each answers the server's HRESULT, or COM's when the server is gone.
struct IToastCntr : public IDispatch {
    // Asks the user whether to update a camera from the first version text to the second one.
    virtual HRESULT STDMETHODCALLTYPE ShowUpdatePrompt(BSTR cameraVersion, BSTR imageVersion) = 0;
    // A line of download status: "start:" and the number of blocks, then the number of blocks sent so far.
    virtual HRESULT STDMETHODCALLTYPE NotifyProgress(BSTR text) = 0;
    // The download has ended, whatever its outcome.
    virtual HRESULT STDMETHODCALLTYPE NotifyComplete() = 0;
};

using IToastCntrPtr = _com_ptr_t<_com_IIID<IToastCntr, &kIidToastCntr>>;
