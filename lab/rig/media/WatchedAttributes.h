#pragma once

#include <windows.h>
#include <mfobjects.h>
#include <wrl/client.h>

#include "lab/rig/media/GivenAttributes.h"

namespace lab::rig {

// An attribute store that the program has made.
class WatchedAttributes final : public GivenAttributes<IMFAttributes> {
  public:
    // Made with one reference, the maker's; shares the store.
    WatchedAttributes(ComLibrary& library, Microsoft::WRL::ComPtr<IMFAttributes> store);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;

  private:
    ~WatchedAttributes() override = default;
};

}  // namespace lab::rig
