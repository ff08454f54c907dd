#pragma once

#include <windows.h>

#include <string>

namespace check {

// The SHA-256 of what is left to read of an open file, in lower-case hexadecimal. `error` is the Win32 code
// or NTSTATUS of what failed, with an empty result.
[[nodiscard]] std::string Sha256Of(HANDLE file, DWORD& error);

}  // namespace check
