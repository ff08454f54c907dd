#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

// A Windows directory and a system directory of the test's own, apart from each other, so that a test sees
// which of the two roads to the firmware image was taken. Both go with the object. Only one exists at a time.
class SystemFolders : public test_support::OnlyOne<SystemFolders> {
  public:
    struct Query {
        bool hasBuffer;
        UINT capacity;
    };

    SystemFolders();
    ~SystemFolders();

    // Writes the image that the camera pass reads its version from: in the drivers of the Windows directory.
    void WriteVersionedImage(const std::vector<std::uint8_t>& bytes) const;
    // Writes the image that the DFU-mode pass downloads: in the drivers of the system directory.
    void WriteDownloadedImage(const std::vector<std::uint8_t>& bytes) const;
    [[nodiscard]] std::wstring DownloadedImagePath() const;

    // GetWindowsDirectoryW fails from now on, with this last error.
    void FailWindowsDirectory(DWORD error);

    [[nodiscard]] const std::vector<Query>& WindowsQueries() const { return windowsQueries_; }
    [[nodiscard]] const std::vector<Query>& SystemQueries() const { return systemQueries_; }
    // Every file in the two that was opened for reading, in order: its path as it was given, from the folder
    // that both are in, a blank and the mode.
    [[nodiscard]] const std::vector<std::wstring>& OpenedFiles() const { return openedFiles_; }

  private:
    static UINT WINAPI OnWindowsDirectory(wchar_t* buffer, UINT capacity);
    static UINT WINAPI OnSystemDirectory(wchar_t* buffer, UINT capacity);
    static FILE* __cdecl OnOpenFile(const wchar_t* path, const wchar_t* mode);

    std::filesystem::path root_;
    bool windowsDirectoryFails_ = false;
    DWORD windowsDirectoryError_ = 0;
    std::vector<Query> windowsQueries_;
    std::vector<Query> systemQueries_;
    std::vector<std::wstring> openedFiles_;
    test_support::ImportRedirect windowsDirectory_;
    test_support::ImportRedirect systemDirectory_;
    test_support::ImportRedirect openFile_;
};
