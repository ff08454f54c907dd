#pragma once

#include "camera/CameraDevice.h"
#include "camera/ExtensionUnitKsControl.h"

#include <string>

namespace check {

// A camera that is looked at, and can be asked for its firmware's version and for nothing else: it is no
// updatable camera, so that this program has no code that sends one into DFU mode. Used by one thread.
class InspectedCamera final : public CameraDevice {
  public:
    // Finds the firmware extension unit, once the camera is open, as an updatable camera does. E_FAIL, or the
    // HRESULT of a failing call, when there is none.
    [[nodiscard]] HRESULT FindExtensionUnit();

    // Null until it was found.
    [[nodiscard]] const Microsoft::WRL::ComPtr<ExtensionUnitKsControl>& ExtensionUnit() const {
        return extensionUnit_;
    }

    // Reads the device information block, with as many attempts and pauses as an updatable camera: up to 2 s
    // and what the transfers of five attempts take, which Windows ends after 5 s each. The HRESULT of the
    // last attempt; `version` is set when that is S_OK.
    [[nodiscard]] HRESULT ReadVersion(std::wstring& version) const;

  private:
    Microsoft::WRL::ComPtr<ExtensionUnitKsControl> extensionUnit_;
};

}  // namespace check
