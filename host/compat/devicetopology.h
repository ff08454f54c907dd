#pragma once

#include <ks.h>

struct IKsControl : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data,
                                                 ULONG dataLength, ULONG* bytesReturned) = 0;
    virtual HRESULT STDMETHODCALLTYPE KsMethod(PKSMETHOD method, ULONG methodLength, void* data,
                                               ULONG dataLength, ULONG* bytesReturned) = 0;
    virtual HRESULT STDMETHODCALLTYPE KsEvent(PKSEVENT event, ULONG eventLength, void* data, ULONG dataLength,
                                              ULONG* bytesReturned) = 0;
};
template <>
inline constexpr GUID kInterfaceId<IKsControl>{
    0x28F54685, 0x06FD, 0x11D2, {0xB2, 0x7A, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
