#include "win32/BinaryFile.h"

#include <filesystem>

// Wide paths are Windows' own: here they go by way of the library's path type.

namespace win32 {

std::ifstream OpenBinaryFile(const std::wstring& path, std::ios::openmode where) {
    return std::ifstream(std::filesystem::path(path), std::ios::binary | where);
}

}  // namespace win32
