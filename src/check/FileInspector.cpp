#include "check/FileInspector.h"

#include "check/SecurityDescriptor.h"
#include "check/Utf8.h"

#include <windows.h>
#include <aclapi.h>

namespace check {

bool FileInspector::IsFile(const std::string& path) {
    const DWORD attributes = GetFileAttributesW(Wide(path).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
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

std::vector<std::string> FileInspector::WritersOf(const std::string& path, Protected what) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    constexpr SECURITY_INFORMATION kWanted = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    if (GetNamedSecurityInfoW(Wide(path).c_str(), SE_FILE_OBJECT, kWanted, nullptr, nullptr, nullptr, nullptr,
                              &descriptor) != ERROR_SUCCESS) {
        return {};
    }
    const AccessList list = ReadSecurityDescriptor(descriptor);
    LocalFree(descriptor);
    std::vector<std::string> names;
    for (const std::string& writer : Writers(list, what)) {
        names.push_back(NameOfSid(writer));
    }
    return names;
}

}  // namespace check
