#include "lab/rig/media/VirtualExtensionUnit.h"

#include "lab/vocabulary/BusEvents.h"

namespace lab::rig {
namespace {

constexpr GUID kUnit{0xC9606CCB, 0x594C, 0x4D25, {0xAF, 0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95}};
constexpr ULONG kCommandControl = 1;
constexpr ULONG kControlSize = VirtualCamera::kFrameSize;

}  // namespace

HRESULT VirtualExtensionUnit::QueryInterface(REFIID iid, void** object) {
    IsCalled("QueryInterface");
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid != __uuidof(IUnknown) && iid != __uuidof(IKsControl)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IKsControl*>(this);
    AddReference();
    return S_OK;
}

HRESULT VirtualExtensionUnit::KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data,
                                         ULONG dataLength, ULONG* bytesReturned) {
    IsCalled("KsProperty");
    if (property == nullptr || bytesReturned == nullptr) {
        return E_POINTER;
    }
    *bytesReturned = 0;
    if (propertyLength != sizeof(KSP_NODE)) {
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    }
    const auto& address = *reinterpret_cast<const KSP_NODE*>(property);
    if (const HRESULT result = CheckAddress(address); FAILED(result)) {
        return result;
    }
    switch (address.Property.Flags & ~ULONG{KSPROPERTY_TYPE_TOPOLOGY}) {
        case KSPROPERTY_TYPE_SETSUPPORT:
            return S_OK;
        case KSPROPERTY_TYPE_SET:
            return Write(static_cast<std::uint8_t*>(data), dataLength);
        case KSPROPERTY_TYPE_GET:
            return Read(static_cast<std::uint8_t*>(data), dataLength, *bytesReturned);
        default:
            return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    }
}

HRESULT VirtualExtensionUnit::KsMethod(PKSMETHOD, ULONG, void*, ULONG, ULONG*) {
    IsCalled("KsMethod");
    return HRESULT_FROM_WIN32(ERROR_SET_NOT_FOUND);
}

HRESULT VirtualExtensionUnit::KsEvent(PKSEVENT, ULONG, void*, ULONG, ULONG*) {
    IsCalled("KsEvent");
    return HRESULT_FROM_WIN32(ERROR_SET_NOT_FOUND);
}

HRESULT VirtualExtensionUnit::CheckAddress(const KSP_NODE& property) const {
    if (isForeign_ || property.Property.Set != kUnit) {
        return HRESULT_FROM_WIN32(ERROR_SET_NOT_FOUND);
    }
    if (property.Property.Id != kCommandControl) {
        return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    }
    if ((property.Property.Flags & KSPROPERTY_TYPE_TOPOLOGY) == 0 || property.NodeId != node_) {
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    }
    return S_OK;
}

HRESULT VirtualExtensionUnit::Write(std::uint8_t* data, ULONG dataLength) {
    if (data == nullptr || dataLength != kControlSize) {
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    }
    return PropertyResult(bus_.WriteCommand(presence_, {data, dataLength}).end);
}

HRESULT VirtualExtensionUnit::Read(std::uint8_t* data, ULONG dataLength, ULONG& bytesReturned) {
    if (dataLength == 0) {
        bytesReturned = kControlSize;
        return HRESULT_FROM_WIN32(ERROR_MORE_DATA);
    }
    if (data == nullptr || dataLength < kControlSize) {
        return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
    }
    const TransferResult result = bus_.ReadReply(presence_, {data, kControlSize});
    bytesReturned = result.end == TransferEnd::Ok ? kControlSize : 0;
    return PropertyResult(result.end);
}

}  // namespace lab::rig
