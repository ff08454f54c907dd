#pragma once

#include "win32/UniqueHandle.h"

#include <winusb.h>

namespace dfu {

struct WinUsbHandleTraits {
    using Handle = WINUSB_INTERFACE_HANDLE;
    static Handle Empty() { return nullptr; }
    static void Close(Handle handle) {
        if (handle != INVALID_HANDLE_VALUE) {
            WinUsb_Free(handle);
        }
    }
};

// Owns a WinUSB interface handle and frees it with WinUsb_Free.
using UniqueWinUsbHandle = win32::UniqueHandle<WinUsbHandleTraits>;

}  // namespace dfu
