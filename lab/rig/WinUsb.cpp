// The functions of WinUSB that the product imports, under their own names: this DLL stands in for theirs.
// winusb.def lists what it exports.

#include <windows.h>
#include <usb.h>
#include <winusb.h>

#include <span>

#include "lab/rig/run/Rig.h"

namespace {

using lab::rig::Rig;
using lab::rig::UsbDevices;

// Runs one call on the run's devices. Without a rig no handle can be one of WinUSB's.
template <typename Call>
WINBOOL Answer(Call call) {
    Rig* const rig = Rig::Get();
    const DWORD error = rig != nullptr ? call(rig->Devices()) : DWORD{ERROR_INVALID_HANDLE};
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

WINBOOL RefuseParameter() {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

std::span<std::uint8_t> BufferOf(UCHAR* buffer, ULONG length) {
    return buffer != nullptr ? std::span<std::uint8_t>(buffer, length) : std::span<std::uint8_t>();
}

}  // namespace

extern "C" {

WINBOOL WINAPI WinUsb_Initialize(HANDLE file, PWINUSB_INTERFACE_HANDLE handle) {
    if (handle == nullptr) {
        return RefuseParameter();
    }
    return Answer([&](UsbDevices& devices) { return devices.Initialize(file, *handle); });
}

WINBOOL WINAPI WinUsb_Free(WINUSB_INTERFACE_HANDLE handle) {
    return Answer([&](UsbDevices& devices) { return devices.Free(handle); });
}

WINBOOL WINAPI WinUsb_GetDescriptor(WINUSB_INTERFACE_HANDLE handle, UCHAR type, UCHAR index, USHORT,
                                    UCHAR* buffer, ULONG length, ULONG* transferred) {
    if (transferred == nullptr) {
        return RefuseParameter();
    }
    return Answer([&](UsbDevices& devices) {
        return devices.GetDescriptor(handle, type, index, BufferOf(buffer, length), *transferred);
    });
}

WINBOOL WINAPI WinUsb_QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE handle, UCHAR alternate,
                                             PUSB_INTERFACE_DESCRIPTOR descriptor) {
    if (descriptor == nullptr) {
        return RefuseParameter();
    }
    return Answer(
        [&](UsbDevices& devices) { return devices.QueryInterfaceSettings(handle, alternate, *descriptor); });
}

WINBOOL WINAPI WinUsb_GetAssociatedInterface(WINUSB_INTERFACE_HANDLE handle, UCHAR index,
                                             PWINUSB_INTERFACE_HANDLE associated) {
    if (associated == nullptr) {
        return RefuseParameter();
    }
    return Answer(
        [&](UsbDevices& devices) { return devices.GetAssociatedInterface(handle, index, *associated); });
}

WINBOOL WINAPI WinUsb_SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE handle, UCHAR setting) {
    return Answer([&](UsbDevices& devices) { return devices.SetCurrentAlternateSetting(handle, setting); });
}

// Only synchronous transfers are served.
WINBOOL WINAPI WinUsb_ControlTransfer(WINUSB_INTERFACE_HANDLE handle, WINUSB_SETUP_PACKET packet,
                                      UCHAR* buffer, ULONG length, ULONG* transferred,
                                      OVERLAPPED* overlapped) {
    if (overlapped != nullptr || (buffer == nullptr && length != 0)) {
        return RefuseParameter();
    }
    const lab::SetupPacket setup{packet.RequestType, packet.Request, packet.Value, packet.Index,
                                 packet.Length};
    ULONG count = 0;
    const WINBOOL ok = Answer([&](UsbDevices& devices) {
        return devices.ControlTransfer(handle, setup, BufferOf(buffer, length), count);
    });
    if (transferred != nullptr) {
        *transferred = count;
    }
    return ok;
}

}  // extern "C"
