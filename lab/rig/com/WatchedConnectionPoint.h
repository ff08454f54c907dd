#pragma once

#include <windows.h>
#include <ocidl.h>
#include <wrl/client.h>

#include "lab/rig/com/PromptReports.h"
#include "lab/rig/contracts/GivenObject.h"

namespace lab::rig {

// A connection point of the toast controller as the program sees it. What it would give unwatched nobody
// needs, and is refused: other interfaces with E_NOINTERFACE, its container and the list of its connections
// with E_NOTIMPL.
class WatchedConnectionPoint final : public GivenObject<IConnectionPoint> {
  public:
    // Shares the proxy. A sink is watched as well when its answers are to be told.
    WatchedConnectionPoint(ComLibrary& library, Microsoft::WRL::ComPtr<IConnectionPoint> proxy,
                           PromptReports reports);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* events) override;
    HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** container) override;
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override;
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override;
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** connections) override;

  private:
    ~WatchedConnectionPoint() override;

    Microsoft::WRL::ComPtr<IConnectionPoint> proxy_;
    const PromptReports reports_;
};

}  // namespace lab::rig
