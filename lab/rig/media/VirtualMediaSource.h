#pragma once

#include <windows.h>
#include <mfidl.h>

#include <atomic>

#include "lab/rig/bus/Bus.h"
#include "lab/rig/contracts/GivenObject.h"
#include "lab/rig/media/KsTopologyInfo.h"

namespace lab::rig {

// A running camera as Media Foundation's media source: its topology, its nodes as its settings list them. It
// streams no pictures: what belongs to streaming answers E_NOTIMPL. After Shutdown everything answers
// MF_E_SHUTDOWN.
class VirtualMediaSource final : public GivenObject<IMFMediaSource, IKsTopologyInfo> {
  public:
    // Made with one reference, the maker's.
    VirtualMediaSource(Bus& bus, ComLibrary& library, const Presence& presence)
        : GivenObject(library, "IMFMediaSource"), bus_(bus), presence_(presence) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;

    HRESULT STDMETHODCALLTYPE GetEvent(DWORD flags, IMFMediaEvent** event) override;
    HRESULT STDMETHODCALLTYPE BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) override;
    HRESULT STDMETHODCALLTYPE EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) override;
    HRESULT STDMETHODCALLTYPE QueueEvent(MediaEventType type, REFGUID extendedType, HRESULT status,
                                         const PROPVARIANT* value) override;

    HRESULT STDMETHODCALLTYPE GetCharacteristics(DWORD* characteristics) override;
    HRESULT STDMETHODCALLTYPE CreatePresentationDescriptor(IMFPresentationDescriptor** descriptor) override;
    HRESULT STDMETHODCALLTYPE Start(IMFPresentationDescriptor* descriptor, const GUID* timeFormat,
                                    const PROPVARIANT* position) override;
    HRESULT STDMETHODCALLTYPE Stop() override;
    HRESULT STDMETHODCALLTYPE Pause() override;
    HRESULT STDMETHODCALLTYPE Shutdown() override;

    HRESULT STDMETHODCALLTYPE get_NumCategories(DWORD* count) override;
    HRESULT STDMETHODCALLTYPE get_Category(DWORD index, GUID* category) override;
    HRESULT STDMETHODCALLTYPE get_NumConnections(DWORD* count) override;
    HRESULT STDMETHODCALLTYPE get_ConnectionInfo(DWORD index, KSTOPOLOGY_CONNECTION* connection) override;
    HRESULT STDMETHODCALLTYPE get_NodeName(DWORD node, WCHAR* name, DWORD size, DWORD* nameLength) override;
    HRESULT STDMETHODCALLTYPE get_NumNodes(DWORD* count) override;
    HRESULT STDMETHODCALLTYPE get_NodeType(DWORD node, GUID* type) override;
    HRESULT STDMETHODCALLTYPE CreateNodeInstance(DWORD node, REFIID iid, void** instance) override;

  private:
    ~VirtualMediaSource() override = default;

    // MF_E_SHUTDOWN after Shutdown, else E_NOTIMPL.
    [[nodiscard]] HRESULT StreamsNothing() const;
    // For an index below `count`: S_OK; fails after Shutdown, for a null result pointer and for a higher
    // index.
    [[nodiscard]] HRESULT Check(const void* result, DWORD index, DWORD count) const;
    [[nodiscard]] DWORD ConnectionCount() const;

    std::atomic<bool> isShutDown_{false};
    Bus& bus_;
    const Presence presence_;
};

}  // namespace lab::rig
