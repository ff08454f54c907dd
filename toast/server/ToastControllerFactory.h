#pragma once

#include <unknwn.h>

#include <atomic>
#include <memory>

#include "toast/server/ServerParts.h"

namespace toast {

// Makes a ToastController for each activation. Free-threaded; owned by its references, of which it starts
// with none.
class ToastControllerFactory final : public IClassFactory {
  public:
    explicit ToastControllerFactory(std::shared_ptr<ServerParts> parts);

    ToastControllerFactory(const ToastControllerFactory&) = delete;
    ToastControllerFactory& operator=(const ToastControllerFactory&) = delete;

    STDMETHODIMP QueryInterface(REFIID interfaceId, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // CLASS_E_NOAGGREGATION when an outer object is given.
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID interfaceId, void** object) override;
    STDMETHODIMP LockServer(BOOL lock) override;

  private:
    ~ToastControllerFactory() = default;

    std::atomic<ULONG> references_ = 0;
    const std::shared_ptr<ServerParts> parts_;
};

}  // namespace toast
