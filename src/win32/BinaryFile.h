#pragma once

#include <fstream>
#include <string>

namespace win32 {

// Opens a file for reading its bytes as they are, at its beginning, or at its end with std::ios::ate. In a
// failed state and not open when that is not possible, whatever the reason.
[[nodiscard]] std::ifstream OpenBinaryFile(const std::wstring& path, std::ios::openmode where = {});

}  // namespace win32
