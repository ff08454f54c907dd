#include "win32/BinaryFile.h"

namespace win32 {

// The buffer takes a wide path by itself on Windows; by way of std::filesystem, whose code for all its other
// work comes along, the executable would be larger by 40 KB.
std::ifstream OpenBinaryFile(const std::wstring& path, std::ios::openmode where) {
    std::ifstream file;
    if (file.rdbuf()->open(path.c_str(), std::ios::in | std::ios::binary | where) == nullptr) {
        file.setstate(std::ios::failbit);
    }
    return file;
}

}  // namespace win32
