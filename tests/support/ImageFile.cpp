#include "tests/support/ImageFile.h"

#include <windows.h>

#include <atomic>
#include <fstream>
#include <ios>

namespace test_support {
namespace {

std::filesystem::path FolderOfItsOwn() {
    static std::atomic<int> made = 0;
    return std::filesystem::temp_directory_path() /
           ("veyra-image-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++made));
}

}  // namespace

ImageFile::ImageFile(const std::vector<std::uint8_t>& bytes, const std::wstring& name)
    : folder_(FolderOfItsOwn()), path_((folder_ / name).wstring()) {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    std::ofstream file(std::filesystem::path(path_), std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    if (!bytes.empty()) {
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
}

ImageFile::~ImageFile() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

}  // namespace test_support
