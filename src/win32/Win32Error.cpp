#include "win32/Win32Error.h"

namespace win32 {

const char* Win32Error::what() const noexcept {
    return "a Windows call failed";
}

void ThrowLastError() {
    throw Win32Error(GetLastError());
}

}  // namespace win32
