#include "host/campaign/CameraControl.h"

#include "host/campaign/BrokenRule.h"

#include <span>

namespace campaign {

HRESULT CameraControl::KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data, ULONG dataLength,
                                  ULONG* bytesReturned) {
    constexpr GUID kExtensionUnit{
        0xC9606CCB, 0x594C, 0x4D25, {0xAF, 0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95}};
    Rule(propertyLength == sizeof *property && property->Set == kExtensionUnit && property->Id == 1,
         "the control is the first of the firmware's extension unit");
    const std::span bytes(static_cast<std::uint8_t*>(data), dataLength);
    if (property->Flags == KSPROPERTY_TYPE_SET) {
        return bus_.WriteControl(camera_, bytes);
    }
    Rule(property->Flags == KSPROPERTY_TYPE_GET, "a control is written or read");
    return bus_.ReadControl(camera_, bytes, *bytesReturned);
}

}  // namespace campaign
