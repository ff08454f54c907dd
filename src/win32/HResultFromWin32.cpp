#include "win32/HResultFromWin32.h"

namespace win32 {

HRESULT HResultFromWin32(LONG code) {
    if (code <= 0) {
        return code;
    }
    return static_cast<HRESULT>(0x80070000U | (static_cast<ULONG>(code) & 0xFFFFU));
}

HRESULT HResultFromLastError() {
    return HResultFromWin32(static_cast<LONG>(GetLastError()));
}

}  // namespace win32
