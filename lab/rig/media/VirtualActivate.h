#pragma once

#include <windows.h>
#include <mfobjects.h>
#include <mfidl.h>
#include <wrl/client.h>

#include <mutex>

#include "lab/rig/bus/Bus.h"
#include "lab/rig/contracts/Contracts.h"
#include "lab/rig/media/GivenAttributes.h"

namespace lab::rig {

// The activation object of a camera's media source: a real attribute store, which says what is to be
// activated by its symbolic link, and the source once it is activated.
class VirtualActivate final : public GivenAttributes<IMFActivate> {
  public:
    // Made with one reference, the maker's; shares the attributes.
    VirtualActivate(Bus& bus, Contracts& contracts, Microsoft::WRL::ComPtr<IMFAttributes> attributes);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;

    // The same source until it is shut down or detached. MF_E_ATTRIBUTENOTFOUND without a symbolic link;
    // HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) when no running camera has that link;
    // MF_E_PLATFORM_NOT_INITIALIZED, and nothing is opened, while the platform is down.
    HRESULT STDMETHODCALLTYPE ActivateObject(REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE ShutdownObject() override;
    HRESULT STDMETHODCALLTYPE DetachObject() override;

  private:
    ~VirtualActivate() override = default;

    [[nodiscard]] HRESULT CreateSource();

    Bus& bus_;
    Contracts& contracts_;
    std::mutex mutex_;
    Microsoft::WRL::ComPtr<IMFMediaSource> source_;  // guarded by mutex_
};

}  // namespace lab::rig
