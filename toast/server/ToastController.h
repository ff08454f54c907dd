#pragma once

#include <ocidl.h>
#include <wrl/client.h>

#include <atomic>
#include <memory>
#include <vector>

#include "prompt/IToastCntr.h"
#include "toast/conversation/Event.h"
#include "toast/server/AdvisedSinks.h"
#include "toast/server/ServerLifetime.h"
#include "toast/server/ServerParts.h"
#include "toast/server/UserRespondConnectionPoint.h"

namespace toast {

// The object that a client talks to: its calls become events of the conversation, and return at once. Of a
// text of any length little more is read than is shown. Free-threaded; owned by its references, of which it
// starts with none; holds the server while it lives.
class ToastController final : public IToastCntr, public IConnectionPointContainer {
  public:
    explicit ToastController(const std::shared_ptr<ServerParts>& parts);

    ToastController(const ToastController&) = delete;
    ToastController& operator=(const ToastController&) = delete;

    STDMETHODIMP QueryInterface(REFIID interfaceId, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT index, LCID locale, ITypeInfo** typeInfo) override;
    STDMETHODIMP GetIDsOfNames(REFIID reserved, LPOLESTR* names, UINT count, LCID locale,
                               DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID id, REFIID reserved, LCID locale, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* wrongArgument) override;

    // S_OK when the event was taken, HRESULT_FROM_WIN32(ERROR_BUSY) when there are too many. A status that
    // means nothing is taken and means nothing.
    STDMETHODIMP ShowUpdatePrompt(BSTR cameraVersion, BSTR imageVersion) override;
    STDMETHODIMP NotifyProgress(BSTR status) override;
    STDMETHODIMP NotifyComplete() override;

    STDMETHODIMP EnumConnectionPoints(IEnumConnectionPoints** enumerator) override;
    // CONNECT_E_NOCONNECTION for every interface but IToastCntrEvents.
    STDMETHODIMP FindConnectionPoint(REFIID interfaceId, IConnectionPoint** point) override;

  private:
    ~ToastController();

    [[nodiscard]] HRESULT Tell(decltype(Event::what) what) const;

    // This object and its connection point; none once the last reference is gone.
    [[nodiscard]] std::vector<Microsoft::WRL::ComPtr<IUnknown>> ObjectsUnlessGone();

    std::atomic<ULONG> references_ = 0;
    const ServerLifetime::Hold hold_;
    const std::shared_ptr<ServerParts> parts_;
    const std::shared_ptr<AdvisedSinks> sinks_;
    const ClientId id_;
    UserRespondConnectionPoint userRespond_;
};

}  // namespace toast
