#pragma once

#include <windows.h>
#include <oaidl.h>
#include <ocidl.h>
#include <wrl/client.h>

#include <mutex>
#include <string_view>
#include <vector>

#include "VeyraCameraToast.h"
#include "lab/rig/com/PromptReports.h"
#include "lab/rig/contracts/GivenObject.h"

namespace lab::rig {

// The toast controller's proxy as the program sees it. Passes every call on while COM's code is there, none
// afterwards: CO_E_OBJNOTCONNECTED. Its connection point container and connection point are watched as well.
class WatchedToastController final : public GivenObject<IToastCntr> {
  public:
    // Shares the proxy.
    WatchedToastController(ComLibrary& library, Microsoft::WRL::ComPtr<IUnknown> proxy,
                           PromptReports reports = {});

    // Nothing that is not watched is given out: E_NOINTERFACE for any other interface.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    // E_NOTIMPL: nobody needs the object that it would give.
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                                            DISPID* ids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                                     VARIANT* result, EXCEPINFO* exception, UINT* argument) override;
    HRESULT STDMETHODCALLTYPE ShowUpdatePrompt(BSTR cameraVersion, BSTR imageVersion) override;
    HRESULT STDMETHODCALLTYPE NotifyProgress(BSTR status) override;
    HRESULT STDMETHODCALLTYPE NotifyComplete() override;

  private:
    ~WatchedToastController() override;

    void Tell(HRESULT result, std::string_view method, const std::vector<BSTR>& texts) const;

    Microsoft::WRL::ComPtr<IUnknown> proxy_;
    const PromptReports reports_;
    std::mutex mutex_;
    // Had from the proxy when the program first asks for it, before it can call any of its methods; then it
    // stays.
    Microsoft::WRL::ComPtr<IToastCntr> controller_;
};

}  // namespace lab::rig
