#include "check/FileInspector.h"

#include "check/SecurityDescriptor.h"
#include "check/Utf8.h"

#include <windows.h>

#include <vector>

namespace check {

bool FileInspector::IsFile(const std::string& path) {
    const DWORD attributes = GetFileAttributesW(Wide(path).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

std::uint32_t FileInspector::ErrorOf(const std::string& path) {
    if (GetFileAttributesW(Wide(path).c_str()) != INVALID_FILE_ATTRIBUTES) {
        return ERROR_SUCCESS;
    }
    const DWORD error = GetLastError();
    const bool isTold = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
                        error == ERROR_INVALID_NAME || error == ERROR_BAD_PATHNAME;
    return isTold ? ERROR_SUCCESS : error;
}

std::string FileInspector::VersionOf(const std::string& path) {
    const std::wstring wide = Wide(path);
    const DWORD size = GetFileVersionInfoSizeW(wide.c_str(), nullptr);
    std::vector<std::uint8_t> block(size);
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (size == 0 || !GetFileVersionInfoW(wide.c_str(), 0, size, block.data()) ||
        !VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) ||
        length < sizeof *fixed) {
        return {};
    }
    const auto number = [](DWORD value) { return std::to_string(value); };
    return number(HIWORD(fixed->dwFileVersionMS)) + "." + number(LOWORD(fixed->dwFileVersionMS)) + "." +
           number(HIWORD(fixed->dwFileVersionLS)) + "." + number(LOWORD(fixed->dwFileVersionLS));
}

WritersState FileInspector::WritersOf(const std::string& path, Protected what) {
    WritersState writers;
    DWORD error = ERROR_SUCCESS;
    const auto list = ReadFileAccess(Wide(path), error);
    writers.error = error;
    if (list) {
        for (const std::string& writer : Writers(*list, what)) {
            writers.names.push_back(NameOfSid(writer));
        }
    }
    return writers;
}

}  // namespace check
