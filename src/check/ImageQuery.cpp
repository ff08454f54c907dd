#include "check/ImageQuery.h"

#include "check/FileDigest.h"
#include "check/FileInspector.h"
#include "check/SecurityDescriptor.h"
#include "check/Utf8.h"
#include "service/ImageVersion.h"
#include "win32/SystemDirectory.h"
#include "win32/UniqueHandle.h"
#include "win32/VersionText.h"

#include <array>

namespace check {
namespace {

constexpr const wchar_t* kImage = L"\\drivers\\KV400Firmware.bin";
constexpr DWORD kDirectoryCapacity = 520;

// Where files go that a 32-bit program puts into the system directory.
bool IsIn32BitFolder() {
    std::array<wchar_t, kDirectoryCapacity> folder{};
    const UINT length = GetSystemWow64DirectoryW(folder.data(), kDirectoryCapacity);
    return length != 0 && length < kDirectoryCapacity &&
           GetFileAttributesW((std::wstring(folder.data()) + kImage).c_str()) != INVALID_FILE_ATTRIBUTES;
}

void Read(HANDLE file, const std::wstring& path, ImageState& state) {
    LARGE_INTEGER size{};
    DWORD error = GetFileSizeEx(file, &size) ? ERROR_SUCCESS : GetLastError();
    if (error == ERROR_SUCCESS) {
        state.size = static_cast<std::uint64_t>(size.QuadPart);
        state.sha256 = Sha256Of(file, error);
    }
    state.error = error;
    state.isReadable = error == ERROR_SUCCESS;
    std::array<std::uint8_t, 4> version{};
    if (state.isReadable && ReadImageVersionBytes(path, version) == ImageVersionRead::Done) {
        state.version = Utf8(win32::VersionText(version));
    }
}

}  // namespace

ImageState QueryImage() {
    const std::wstring path = win32::SystemDirectory() + kImage;
    ImageState state = QueryImage(path);
    if (state.exists) {
        DWORD error = ERROR_SUCCESS;
        const auto list = ReadFileAccess(path, error);
        state.ofService = list ? ReadPermissionOf(*list) : Permission::Unreadable;
    }
    state.isIn32BitFolder = !state.exists && !state.isHidden && IsIn32BitFolder();
    return state;
}

ImageState QueryImage(const std::wstring& path) {
    ImageState state;
    state.path = Utf8(path);
    const HANDLE opened =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    const DWORD error = GetLastError();
    const win32::UniqueKernelHandle file(opened == INVALID_HANDLE_VALUE ? nullptr : opened);
    const DWORD attributes = GetFileAttributesW(path.c_str());
    state.exists = attributes != INVALID_FILE_ATTRIBUTES;
    if (!file) {
        const bool isFolder = state.exists && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        state.error = error;
        state.isHidden =
            !isFolder && (error == ERROR_ACCESS_DENIED || FileInspector::ErrorOf(state.path) != 0);
        return state;
    }
    if (GetFileType(file.Get()) != FILE_TYPE_DISK) {
        state.error = ERROR_BAD_FILE_TYPE;
        return state;
    }
    Read(file.Get(), path, state);
    return state;
}

}  // namespace check
