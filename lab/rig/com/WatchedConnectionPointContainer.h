#pragma once

#include <windows.h>
#include <ocidl.h>
#include <wrl/client.h>

#include "lab/rig/com/PromptReports.h"
#include "lab/rig/contracts/GivenObject.h"

namespace lab::rig {

// The toast controller's connection point container as the program sees it; its connection points are watched
// as well.
class WatchedConnectionPointContainer final : public GivenObject<IConnectionPointContainer> {
  public:
    // A part of `controller`, which it shares; shares the proxy.
    WatchedConnectionPointContainer(ComLibrary& library, IUnknown* controller,
                                    Microsoft::WRL::ComPtr<IConnectionPointContainer> proxy,
                                    PromptReports reports);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    // E_NOTIMPL: nobody needs the list, whose points would have to be watched.
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override;
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID events, IConnectionPoint** point) override;

  private:
    ~WatchedConnectionPointContainer() override;

    Microsoft::WRL::ComPtr<IUnknown> controller_;
    Microsoft::WRL::ComPtr<IConnectionPointContainer> proxy_;
    const PromptReports reports_;
};

}  // namespace lab::rig
