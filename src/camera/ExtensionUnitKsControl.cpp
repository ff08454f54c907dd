#include "camera/ExtensionUnitKsControl.h"

#include "camera/ExtensionUnit.h"

#include <new>
#include <utility>

using Microsoft::WRL::ComPtr;

namespace {

constexpr DWORD kNoNode = 0xFFFFFFFF;
// A count that no release brings back to zero: an object under destruction is not destroyed again.
constexpr ULONG kDestroyedReferences = 0xC0000001;
constexpr ULONG kProbeFlags = KSPROPERTY_TYPE_SETSUPPORT | KSPROPERTY_TYPE_TOPOLOGY;
static_assert(kProbeFlags == 0x10000100);
static_assert(sizeof(KSP_NODE) == 32);

std::atomic<ULONG> moduleObjectCount{0};

}  // namespace

ComPtr<ExtensionUnitKsControl> ExtensionUnitKsControl::Create() {
    ComPtr<ExtensionUnitKsControl> control;
    // Not Attach(): whether that takes over the reference or adds one depends on the platform's headers.
    *control.GetAddressOf() = new (std::nothrow) ExtensionUnitKsControl;
    return control;
}

ULONG ExtensionUnitKsControl::ModuleObjectCount() {
    return moduleObjectCount;
}

ExtensionUnitKsControl::ExtensionUnitKsControl() : propertySet_(kExtensionUnit), nodeId_(kNoNode) {
    ++moduleObjectCount;
}

ExtensionUnitKsControl::~ExtensionUnitKsControl() {
    references_ = kDestroyedReferences;
}

// By value: the reference given is released on return.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
HRESULT ExtensionUnitKsControl::Attach(ComPtr<IMFMediaSource> mediaSource) {
    ComPtr<IKsTopologyInfo> topology;
    HRESULT result =
        mediaSource->QueryInterface(kIidKsTopologyInfo, reinterpret_cast<void**>(topology.GetAddressOf()));
    if (FAILED(result)) {
        return result;
    }
    if (!topology) {
        return E_FAIL;
    }
    DWORD nodeCount = 0;
    result = topology->get_NumNodes(&nodeCount);
    if (FAILED(result)) {
        return result;
    }
    for (DWORD node = 0; node < nodeCount; ++node) {
        if (TryNode(*topology.Get(), node)) {
            return S_OK;
        }
    }
    return E_FAIL;
}

bool ExtensionUnitKsControl::TryNode(IKsTopologyInfo& topology, DWORD node) {
    GUID type{};
    if (FAILED(topology.get_NodeType(node, &type)) || type != kDeviceSpecificNodeType) {
        return false;
    }
    ComPtr<IUnknown> instance;
    if (FAILED(topology.CreateNodeInstance(node, IID_IUnknown,
                                           reinterpret_cast<void**>(instance.GetAddressOf()))) ||
        !instance) {
        return false;
    }
    ComPtr<IKsControl> control;
    if (FAILED(instance->QueryInterface(kIidKsControl, reinterpret_cast<void**>(control.GetAddressOf()))) ||
        !control) {
        return false;
    }

    KSP_NODE probe{};
    probe.Property.Set = propertySet_;
    probe.Property.Id = kCommandControl;
    probe.Property.Flags = kProbeFlags;
    probe.NodeId = node;
    ULONG bytesReturned = 0;
    if (FAILED(control->KsProperty(&probe.Property, sizeof probe, nullptr, 0, &bytesReturned))) {
        return false;
    }
    nodeControl_ = std::move(control);
    nodeId_ = node;
    return true;
}

HRESULT ExtensionUnitKsControl::QueryInterface(REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (interfaceId == IID_IUnknown || interfaceId == kIidKsControl) {
        *object = static_cast<IKsControl*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG ExtensionUnitKsControl::AddRef() {
    return ++references_;
}

ULONG ExtensionUnitKsControl::Release() {
    const ULONG remaining = --references_;
    if (remaining == 0) {
        delete this;
        --moduleObjectCount;
    }
    return remaining;
}

KSP_NODE ExtensionUnitKsControl::NodeDescriptor(const KSIDENTIFIER& identifier) const {
    KSP_NODE descriptor{};
    descriptor.Property.Set = identifier.Set;
    descriptor.Property.Id = identifier.Id;
    descriptor.Property.Flags = identifier.Flags | KSPROPERTY_TYPE_TOPOLOGY;
    descriptor.NodeId = nodeId_;
    return descriptor;
}

HRESULT ExtensionUnitKsControl::KsProperty(PKSPROPERTY property, ULONG, void* data, ULONG dataLength,
                                           ULONG* bytesReturned) {
    if (!nodeControl_) {
        return E_FAIL;
    }
    KSP_NODE descriptor = NodeDescriptor(*property);
    return nodeControl_->KsProperty(&descriptor.Property, sizeof descriptor, data, dataLength, bytesReturned);
}

HRESULT ExtensionUnitKsControl::KsMethod(PKSMETHOD method, ULONG, void* data, ULONG dataLength,
                                         ULONG* bytesReturned) {
    if (!nodeControl_) {
        return E_FAIL;
    }
    KSP_NODE descriptor = NodeDescriptor(*method);
    return nodeControl_->KsMethod(&descriptor.Property, sizeof descriptor, data, dataLength, bytesReturned);
}

HRESULT ExtensionUnitKsControl::KsEvent(PKSEVENT event, ULONG, void* data, ULONG dataLength,
                                        ULONG* bytesReturned) {
    if (!nodeControl_) {
        return E_FAIL;
    }
    KSP_NODE descriptor = NodeDescriptor(*event);
    return nodeControl_->KsEvent(&descriptor.Property, sizeof descriptor, data, dataLength, bytesReturned);
}
