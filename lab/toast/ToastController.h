#pragma once

#include <ocidl.h>

#include <atomic>
#include <memory>
#include <vector>

#include "VeyraCameraToast.h"
#include "lab/toast/ServerLifetime.h"
#include "lab/toast/ServerParts.h"
#include "lab/toast/UserRespondConnectionPoint.h"

namespace lab::toast {

// The object that the update service talks to. It shows nothing itself: each call is reported to the
// laboratory, and returns S_OK or what the scenario wants. Free-threaded; owned by its references, of which
// it starts with none; holds the server while it lives.
class ToastController final : public IToastCntr, public IConnectionPointContainer {
  public:
    explicit ToastController(const std::shared_ptr<ServerParts>& parts);

    STDMETHODIMP QueryInterface(REFIID interfaceId, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT index, LCID locale, ITypeInfo** typeInfo) override;
    STDMETHODIMP GetIDsOfNames(REFIID reserved, LPOLESTR* names, UINT count, LCID locale,
                               DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID id, REFIID reserved, LCID locale, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* wrongArgument) override;

    STDMETHODIMP ShowUpdatePrompt(BSTR cameraVersion, BSTR imageVersion) override;
    STDMETHODIMP NotifyProgress(BSTR status) override;
    STDMETHODIMP NotifyComplete() override;

    STDMETHODIMP EnumConnectionPoints(IEnumConnectionPoints** enumerator) override;
    // CONNECT_E_NOCONNECTION for every interface but IToastCntrEvents.
    STDMETHODIMP FindConnectionPoint(REFIID interfaceId, IConnectionPoint** point) override;

  private:
    ~ToastController() = default;

    HRESULT Answer(const char* method, const std::vector<BSTR>& texts);

    std::atomic<ULONG> references_ = 0;
    const ServerLifetime::Hold hold_;
    const std::shared_ptr<ServerParts> parts_;
    UserRespondConnectionPoint userRespond_;
};

}  // namespace lab::toast
