#pragma once

#include <usb.h>
#include <windows.h>

using WINUSB_INTERFACE_HANDLE = void*;

#pragma pack(push, 1)
struct WINUSB_SETUP_PACKET {
    UCHAR RequestType;
    UCHAR Request;
    USHORT Value;
    USHORT Index;
    USHORT Length;
};
#pragma pack(pop)
static_assert(sizeof(WINUSB_SETUP_PACKET) == 8);

// There is no bus here: each of these fails with ERROR_BAD_COMMAND until a test replaces it.
BOOL WinUsb_Initialize(HANDLE file, WINUSB_INTERFACE_HANDLE* handle);
BOOL WinUsb_Free(WINUSB_INTERFACE_HANDLE handle);
BOOL WinUsb_GetDescriptor(WINUSB_INTERFACE_HANDLE handle, UCHAR type, UCHAR index, USHORT language,
                          UCHAR* buffer, ULONG size, ULONG* transferred);
BOOL WinUsb_QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE handle, UCHAR alternateNumber,
                                   USB_INTERFACE_DESCRIPTOR* descriptor);
BOOL WinUsb_GetAssociatedInterface(WINUSB_INTERFACE_HANDLE handle, UCHAR index,
                                   WINUSB_INTERFACE_HANDLE* associated);
BOOL WinUsb_SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE handle, UCHAR setting);
BOOL WinUsb_ControlTransfer(WINUSB_INTERFACE_HANDLE handle, WINUSB_SETUP_PACKET setup, UCHAR* buffer,
                            ULONG size, ULONG* transferred, OVERLAPPED* overlapped);
