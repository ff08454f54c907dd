#pragma once

#include "host/campaign/CameraBus.h"

#include <windows.h>
#include <mfidl.h>  // before ks.h, which defines some of its types as other things
#include <ks.h>
#include <devicetopology.h>

#include <cstddef>

namespace campaign {

// The extension unit's control of a camera on the bus, as kernel streaming offers it. Belongs to whoever has
// made it; references are not counted.
class CameraControl final : public IKsControl {
  public:
    CameraControl(CameraBus& bus, std::size_t camera) : bus_(bus), camera_(camera) {}
    CameraControl(const CameraControl&) = delete;
    CameraControl& operator=(const CameraControl&) = delete;
    virtual ~CameraControl() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data,
                                         ULONG dataLength, ULONG* bytesReturned) override;
    HRESULT STDMETHODCALLTYPE KsMethod(PKSMETHOD, ULONG, void*, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE KsEvent(PKSEVENT, ULONG, void*, ULONG, ULONG*) override { return E_NOTIMPL; }

  private:
    CameraBus& bus_;
    std::size_t camera_;
};

}  // namespace campaign
