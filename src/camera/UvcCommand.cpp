#include "camera/UvcCommand.h"

#include <utility>

static_assert(sizeof(KSPROPERTY) == 24);

UvcCommand::UvcCommand(Microsoft::WRL::ComPtr<IKsControl> control, const GUID& propertySet, ULONG propertyId)
    : control_(std::move(control)), propertySet_(propertySet), propertyId_(propertyId) {}

UvcCommand::~UvcCommand() = default;

HRESULT UvcCommand::Set(std::span<BYTE> data) {
    ULONG bytesReturned = 0;
    return Transfer(KSPROPERTY_TYPE_SET, data, bytesReturned);
}

HRESULT UvcCommand::Get(std::span<BYTE> data, ULONG& bytesReturned) {
    return Transfer(KSPROPERTY_TYPE_GET, data, bytesReturned);
}

HRESULT UvcCommand::Transfer(ULONG flags, std::span<BYTE> data, ULONG& bytesReturned) {
    KSPROPERTY property{};
    property.Set = propertySet_;
    property.Id = propertyId_;
    property.Flags = flags;
    bytesReturned = 0;
    return control_->KsProperty(&property, sizeof property, data.data(), static_cast<ULONG>(data.size()),
                                &bytesReturned);
}
