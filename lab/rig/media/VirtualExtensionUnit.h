#pragma once

#include <windows.h>
#include <devicetopology.h>
#include <ks.h>

#include "lab/rig/bus/Bus.h"
#include "lab/rig/contracts/GivenObject.h"

namespace lab::rig {

// The instance of a camera's extension-unit node: properties addressed to this node reach the camera's
// firmware command control. Anything that the camera driver would refuse is refused: a descriptor that is no
// node descriptor, another node, property set or control, another size of data than the control's 1024 bytes.
class VirtualExtensionUnit final : public GivenObject<IKsControl> {
  public:
    // Made with one reference, the maker's.
    // A foreign one is another unit than the firmware's, and knows none of its controls.
    VirtualExtensionUnit(Bus& bus, ComLibrary& library, const Presence& presence, DWORD node,
                         bool isForeign = false)
        : GivenObject(library, "IKsControl"),
          bus_(bus),
          presence_(presence),
          node_(node),
          isForeign_(isForeign) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;

    HRESULT STDMETHODCALLTYPE KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data,
                                         ULONG dataLength, ULONG* bytesReturned) override;
    HRESULT STDMETHODCALLTYPE KsMethod(PKSMETHOD method, ULONG methodLength, void* data, ULONG dataLength,
                                       ULONG* bytesReturned) override;
    HRESULT STDMETHODCALLTYPE KsEvent(PKSEVENT event, ULONG eventLength, void* data, ULONG dataLength,
                                      ULONG* bytesReturned) override;

  private:
    ~VirtualExtensionUnit() override = default;

    [[nodiscard]] HRESULT CheckAddress(const KSP_NODE& property) const;
    HRESULT Write(std::uint8_t* data, ULONG dataLength);
    HRESULT Read(std::uint8_t* data, ULONG dataLength, ULONG& bytesReturned);

    Bus& bus_;
    const Presence presence_;
    const DWORD node_;
    const bool isForeign_;
};

}  // namespace lab::rig
