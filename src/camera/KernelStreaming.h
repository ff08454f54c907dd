#pragma once

#include <windows.h>
#include <mfidl.h>  // before ks.h, which defines some of its types as other things
#include <ks.h>
#include <devicetopology.h>

// What kernel streaming publishes and mingw-w64's headers leave out or do not define as constants.

inline constexpr GUID kSensorCameraCategory{
    0x24E552D7, 0x6523, 0x47F7, {0xA6, 0x47, 0xD3, 0x46, 0x5B, 0xF1, 0xF5, 0xCA}};
inline constexpr GUID kCaptureCategory{
    0x65E8773D, 0x8F56, 0x11D0, {0xA3, 0xB9, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
inline constexpr GUID kDeviceSpecificNodeType{
    0x941C7AC0, 0xC559, 0x11D0, {0x8A, 0x2B, 0x00, 0xA0, 0xC9, 0x25, 0x5A, 0xC1}};
inline constexpr GUID kIidKsTopologyInfo{
    0x720D4AC0, 0x7533, 0x11D0, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};
inline constexpr GUID kIidKsControl{
    0x28F54685, 0x06FD, 0x11D2, {0xB2, 0x7A, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};

// The topology of a kernel-streaming filter: its nodes, their types, and access to each of them.
struct IKsTopologyInfo : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_NumCategories(DWORD* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Category(DWORD index, GUID* category) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NumConnections(DWORD* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ConnectionInfo(DWORD index, KSTOPOLOGY_CONNECTION* connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NodeName(DWORD nodeId, WCHAR* name, DWORD bufferSize,
                                                   DWORD* nameLength) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NumNodes(DWORD* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NodeType(DWORD nodeId, GUID* type) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateNodeInstance(DWORD nodeId, REFIID interfaceId, void** object) = 0;
};
