#include "check/FileInspector.h"

#include "check/SecurityDescriptor.h"
#include "check/Utf8.h"

#include <windows.h>
#include <aclapi.h>

namespace check {
namespace {

std::optional<AccessList> ListOf(const std::string& path) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    constexpr SECURITY_INFORMATION kWanted = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    if (GetNamedSecurityInfoW(Wide(path).c_str(), SE_FILE_OBJECT, kWanted, nullptr, nullptr, nullptr, nullptr,
                              &descriptor) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    const AccessList list = ReadSecurityDescriptor(descriptor);
    LocalFree(descriptor);
    return list;
}

}  // namespace

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

Writing FileInspector::WritersOf(const std::string& path, Protected what) {
    const auto list = ListOf(path);
    if (!list) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    for (const std::string& writer : Writers(*list, what)) {
        names.push_back(NameOfSid(writer));
    }
    return names;
}

Permission FileInspector::ReadPermissionOf(const std::string& path) {
    const auto list = ListOf(path);
    return list ? check::ReadPermissionOf(*list) : Permission::NotSet;
}

}  // namespace check
