#pragma once

#include "prompt/CCmdTarget.h"

#include <atomic>
#include <shared_mutex>

// The IDispatch of a CCmdTarget. Thread-safe; every entry maps exceptions to codes.
class AutomationDispatch final : public IDispatch {
  public:
    // A connected object, whose one reference is the caller's. Raises std::bad_alloc.
    [[nodiscard]] static Microsoft::WRL::ComPtr<AutomationDispatch> Create(
        CCmdTarget::DispatchMap dispatchMap, CCmdTarget::InterfaceMap interfaceMap);

    // Waits for the calls in progress and refuses all later ones.
    void Disconnect();

    // E_NOINTERFACE for all but IUnknown, IDispatch and those of the interface map.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // There is no type information: 0, and E_NOTIMPL.
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** typeInfo) override;
    // Names are compared without case. DISP_E_UNKNOWNNAME when one is not in the map, E_INVALIDARG for a null
    // pointer or no name.
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID reserved, LPOLESTR* names, UINT nameCount, LCID locale,
                                            DISPID* ids) override;
    // DISP_E_MEMBERNOTFOUND for an unknown id or anything but a method call, DISP_E_BADPARAMCOUNT,
    // DISP_E_TYPEMISMATCH for an argument that cannot be read as VT_I4, CO_E_OBJNOTCONNECTED after
    // Disconnect, E_OUTOFMEMORY or E_FAIL for what the method raises. `result` may be null.
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID reserved, LCID locale, WORD flags,
                                     DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                                     UINT* badArgument) override;

  private:
    AutomationDispatch(CCmdTarget::DispatchMap dispatchMap, CCmdTarget::InterfaceMap interfaceMap);
    ~AutomationDispatch() = default;

    std::atomic<ULONG> references_{1};
    const CCmdTarget::DispatchMap dispatchMap_;
    const CCmdTarget::InterfaceMap interfaceMap_;
    std::shared_mutex lock_;  // shared by the calls, exclusive for Disconnect
    bool connected_ = true;
};
