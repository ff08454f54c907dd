#pragma once

#include <windows.h>
#include <ks.h>
#include <unknwn.h>

// The topology of a kernel-streaming filter; the toolchain's headers lack it.
struct IKsTopologyInfo : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_NumCategories(DWORD* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Category(DWORD index, GUID* category) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NumConnections(DWORD* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ConnectionInfo(DWORD index, KSTOPOLOGY_CONNECTION* connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NodeName(DWORD node, WCHAR* name, DWORD size,
                                                   DWORD* nameLength) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NumNodes(DWORD* count) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_NodeType(DWORD node, GUID* type) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateNodeInstance(DWORD node, REFIID iid, void** instance) = 0;
};

__CRT_UUID_DECL(IKsTopologyInfo, 0x720D4AC0, 0x7533, 0x11D0, 0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00)
