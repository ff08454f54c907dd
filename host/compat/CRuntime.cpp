#include "CRuntime.h"

#include <cerrno>
#include <cstring>
#include <cwchar>

namespace {

errno_t CheckedCopy(void* destination, std::size_t room, const void* source, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    if (destination == nullptr || source == nullptr || size > room) {
        if (destination != nullptr) {
            std::memset(destination, 0, room);
        }
        errno = destination == nullptr || source == nullptr ? EINVAL : ERANGE;
        return errno;
    }
    std::memcpy(destination, source, size);
    return 0;
}

}  // namespace

errno_t (*__imp_memcpy_s)(void*, std::size_t, const void*, std::size_t) = &CheckedCopy;

errno_t memcpy_s(void* destination, std::size_t room, const void* source, std::size_t size) {
    return __imp_memcpy_s(destination, room, source, size);
}

int _wtoi(const wchar_t* text) {
    return static_cast<int>(std::wcstol(text, nullptr, 10));
}
