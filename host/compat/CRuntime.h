#pragma once

#include <cstddef>

// What Windows' C runtime has beyond the standard library in <cstring> and <cwchar>. Included in front of
// every portable source, as those headers do under Windows.

using errno_t = int;

extern "C" {

// The value of the decimal digits at the start, 0 without any; blanks and a sign may stand before them.
int _wtoi(const wchar_t* text);

// Copies `size` bytes. A null pointer, or too little room: returns EINVAL or ERANGE, which also goes to
// errno, and copies nothing; the room, where there is some, is then zero-filled.
errno_t memcpy_s(void* destination, std::size_t room, const void* source, std::size_t size);

// Where memcpy_s really goes; a test may put its own function there.
extern errno_t (*__imp_memcpy_s)(void*, std::size_t, const void*, std::size_t);
}
