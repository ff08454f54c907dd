#pragma once

#include <ocidl.h>

#include <memory>

#include "toast/server/AdvisedSinks.h"

namespace toast {

// The connection point for IToastCntrEvents: a part of its container, whose references it counts as its own.
// A sink may answer the events' interface id or only IDispatch. Free-threaded.
class UserRespondConnectionPoint final : public IConnectionPoint {
  public:
    // `container` is the object that this is a part of.
    UserRespondConnectionPoint(IConnectionPointContainer& container, std::shared_ptr<AdvisedSinks> sinks);

    UserRespondConnectionPoint(const UserRespondConnectionPoint&) = delete;
    UserRespondConnectionPoint& operator=(const UserRespondConnectionPoint&) = delete;

    STDMETHODIMP QueryInterface(REFIID interfaceId, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP GetConnectionInterface(IID* interfaceId) override;
    STDMETHODIMP GetConnectionPointContainer(IConnectionPointContainer** container) override;
    // CONNECT_E_CANNOTCONNECT for a sink that answers neither interface.
    STDMETHODIMP Advise(IUnknown* sink, DWORD* cookie) override;
    // CONNECT_E_NOCONNECTION for a cookie that is not of this connection point, or whose sink was found dead.
    STDMETHODIMP Unadvise(DWORD cookie) override;
    // E_NOTIMPL, which this method alone of all may return.
    STDMETHODIMP EnumConnections(IEnumConnections** connections) override;

  private:
    IConnectionPointContainer& container_;
    const std::shared_ptr<AdvisedSinks> sinks_;
};

}  // namespace toast
