#include "win32/SystemDirectory.h"

#include <windows.h>

namespace win32 {

std::wstring SystemDirectory() {
    const UINT capacity = GetSystemDirectoryW(nullptr, 0);
    std::wstring directory(capacity, L'\0');
    const UINT length = GetSystemDirectoryW(directory.data(), capacity);
    directory.resize(length < capacity ? length : 0);
    return directory;
}

}  // namespace win32
