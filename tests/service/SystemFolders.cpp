#include "tests/service/SystemFolders.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace {

std::filesystem::path NewFolder() {
    const auto folder =
        std::filesystem::temp_directory_path() / (L"veyra-folders-" + std::to_wstring(GetCurrentProcessId()));
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder;
}

void Write(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    for (const std::uint8_t byte : bytes) {
        file.put(static_cast<char>(byte));
    }
    file.close();
    if (!file) {
        throw std::runtime_error("the test's image cannot be written");
    }
}

// As Windows answers: the length without the terminator, or, when it does not fit, the capacity that it
// needs.
UINT Answer(const std::wstring& folder, wchar_t* buffer, UINT capacity) {
    const auto needed = static_cast<UINT>(folder.size() + 1);
    if (capacity < needed) {
        return needed;
    }
    std::copy_n(folder.c_str(), needed, buffer);
    return needed - 1;
}

}  // namespace

SystemFolders::SystemFolders()
    : root_(NewFolder()),
      windowsDirectory_("GetWindowsDirectoryW", OnWindowsDirectory),
      systemDirectory_("GetSystemDirectoryW", OnSystemDirectory),
      openFile_("_wfopen", OnOpenFile) {}

SystemFolders::~SystemFolders() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

void SystemFolders::WriteVersionedImage(const std::vector<std::uint8_t>& bytes) const {
    Write(root_ / "windows" / "system32" / "drivers" / "KV400Firmware.bin", bytes);
}

void SystemFolders::WriteDownloadedImage(const std::vector<std::uint8_t>& bytes) const {
    Write(DownloadedImagePath(), bytes);
}

std::wstring SystemFolders::DownloadedImagePath() const {
    return (root_ / "system" / "drivers" / "KV400Firmware.bin").wstring();
}

void SystemFolders::FailWindowsDirectory(DWORD error) {
    windowsDirectoryFails_ = true;
    windowsDirectoryError_ = error;
}

UINT WINAPI SystemFolders::OnWindowsDirectory(wchar_t* buffer, UINT capacity) {
    current_->windowsQueries_.push_back({buffer != nullptr, capacity});
    if (current_->windowsDirectoryFails_) {
        SetLastError(current_->windowsDirectoryError_);
        return 0;
    }
    return Answer((current_->root_ / "windows").wstring(), buffer, capacity);
}

UINT WINAPI SystemFolders::OnSystemDirectory(wchar_t* buffer, UINT capacity) {
    current_->systemQueries_.push_back({buffer != nullptr, capacity});
    return Answer((current_->root_ / "system").wstring(), buffer, capacity);
}

FILE* __cdecl SystemFolders::OnOpenFile(const wchar_t* path, const wchar_t* mode) {
    const std::wstring given = path;
    const std::wstring folder = current_->root_.wstring() + L"\\";
    if (given.starts_with(folder) && mode[0] == L'r') {
        current_->openedFiles_.push_back(given.substr(folder.size()) + L" " + mode);
    }
    return current_->openFile_.Original<decltype(OnOpenFile)>()(path, mode);
}
