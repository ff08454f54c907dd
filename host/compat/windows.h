#pragma once

#include <cstddef>
#include <cstdint>

#include "guiddef.h"

// The part of Windows that the portable sources and their tests name: the types, in their Windows widths, the
// codes, and declarations of the calls. What the calls do here stands in WindowsFunctions.cpp; a test
// replaces each of them by its name, as it does under Windows.

#define WINAPI
#define CMAPI
#define CALLBACK
#define STDMETHODCALLTYPE
#define __cdecl
#define TRUE 1
#define FALSE 0

using BOOL = int;
using BYTE = std::uint8_t;
using UCHAR = std::uint8_t;
using PUCHAR = UCHAR*;
using USHORT = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using ULONGLONG = unsigned long long;
using WCHAR = wchar_t;
using LPCWSTR = const wchar_t*;
using PVOID = void*;
using HANDLE = void*;
using HRESULT = LONG;

struct SECURITY_ATTRIBUTES;
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;
struct OVERLAPPED;

// Named by the owning handle types; nothing here makes such handles.
using HKEY = struct RegistryKey*;
using SC_HANDLE = struct ServiceHandle*;
LONG RegCloseKey(HKEY key);
BOOL CloseServiceHandle(SC_HANDLE handle);

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~std::uintptr_t{0});
inline constexpr DWORD INFINITE = 0xFFFFFFFF;

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000;

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

inline constexpr LONG ERROR_SUCCESS = 0;
inline constexpr LONG ERROR_FILE_NOT_FOUND = 2;
inline constexpr LONG ERROR_ACCESS_DENIED = 5;
inline constexpr LONG ERROR_INVALID_HANDLE = 6;
inline constexpr LONG ERROR_INVALID_DATA = 13;
inline constexpr LONG ERROR_BAD_COMMAND = 22;
inline constexpr LONG ERROR_BAD_LENGTH = 24;
inline constexpr LONG ERROR_GEN_FAILURE = 31;
inline constexpr LONG ERROR_INVALID_PARAMETER = 87;
inline constexpr LONG ERROR_SEM_TIMEOUT = 121;
inline constexpr LONG ERROR_NO_MORE_ITEMS = 259;
inline constexpr LONG ERROR_DEVICE_NOT_CONNECTED = 1167;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);

constexpr bool SUCCEEDED(HRESULT result) {
    return result >= 0;
}
constexpr bool FAILED(HRESULT result) {
    return result < 0;
}
constexpr HRESULT HRESULT_FROM_WIN32(DWORD code) {
    return code == 0 ? S_OK : static_cast<HRESULT>(0x80070000U | (code & 0xFFFFU));
}

DWORD GetLastError();
void SetLastError(DWORD code);

void Sleep(DWORD milliseconds);
ULONGLONG GetTickCount64();
DWORD GetCurrentThreadId();
DWORD GetCurrentProcessId();

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL signalled, LPCWSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);
HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                   DWORD disposition, DWORD attributes, HANDLE templateFile);
BOOL CloseHandle(HANDLE handle);
BOOL DeleteFileW(LPCWSTR path);

// The root of every COM interface.
struct IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;
};
template <>
inline constexpr GUID kInterfaceId<IUnknown>{0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
