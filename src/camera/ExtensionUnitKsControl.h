#pragma once

#include "camera/KernelStreaming.h"

#include <wrl/client.h>

#include <atomic>

// The extension unit of one camera: finds its node in the topology of the camera's media source, and forwards
// properties, methods and events to that node, so that its user needs no node numbers. Before Attach succeeds
// every forwarded call answers E_FAIL. Owned through COM references; the count is atomic, nothing else is
// locked.
class ExtensionUnitKsControl final : public IKsControl {
  public:
    // A detached control with one reference, or null when there is no memory.
    [[nodiscard]] static Microsoft::WRL::ComPtr<ExtensionUnitKsControl> Create();

    // How many of these objects the module has alive.
    [[nodiscard]] static ULONG ModuleObjectCount();

    // Searches the media source's nodes, in index order, for the first device-specific one that supports the
    // command control, and keeps it. The HRESULT of the failing call when the topology cannot be read; E_FAIL
    // when no node answers.
    HRESULT Attach(Microsoft::WRL::ComPtr<IMFMediaSource> mediaSource);

    // E_NOINTERFACE for all but IUnknown and IKsControl, E_POINTER for a null `object`.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // The caller's descriptor, which must have at least the 24 bytes of a KSPROPERTY, goes to the node with
    // the node id and the topology flag added. The node's HRESULT is returned unchanged.
    HRESULT STDMETHODCALLTYPE KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data,
                                         ULONG dataLength, ULONG* bytesReturned) override;
    HRESULT STDMETHODCALLTYPE KsMethod(PKSMETHOD method, ULONG methodLength, void* data, ULONG dataLength,
                                       ULONG* bytesReturned) override;
    HRESULT STDMETHODCALLTYPE KsEvent(PKSEVENT event, ULONG eventLength, void* data, ULONG dataLength,
                                      ULONG* bytesReturned) override;

  private:
    ExtensionUnitKsControl();
    virtual ~ExtensionUnitKsControl();

    [[nodiscard]] bool TryNode(IKsTopologyInfo& topology, DWORD node);
    [[nodiscard]] KSP_NODE NodeDescriptor(const KSIDENTIFIER& identifier) const;

    std::atomic<ULONG> references_{1};
    Microsoft::WRL::ComPtr<IKsControl> nodeControl_;
    GUID propertySet_;
    DWORD nodeId_;
};
