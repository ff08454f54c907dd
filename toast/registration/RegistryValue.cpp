#include "toast/registration/RegistryValue.h"

#include <sddl.h>

#include <memory>
#include <span>
#include <utility>

#include "win32/Win32Error.h"

namespace toast {
namespace {

std::vector<std::uint8_t> Bytes(const void* data, std::size_t size) {
    const std::span bytes(static_cast<const std::uint8_t*>(data), size);
    return {bytes.begin(), bytes.end()};
}

}  // namespace

RegistryValue TextValue(std::wstring key, std::wstring name, std::wstring_view text) {
    const std::wstring terminated(text);
    return {std::move(key), std::move(name), REG_SZ,
            Bytes(terminated.c_str(), (terminated.size() + 1) * sizeof(wchar_t))};
}

RegistryValue NumberValue(std::wstring key, std::wstring name, DWORD number) {
    return {std::move(key), std::move(name), REG_DWORD, Bytes(&number, sizeof number)};
}

RegistryValue PermissionValue(std::wstring key, std::wstring name, const wchar_t* permission) {
    void* descriptor = nullptr;
    ULONG size = 0;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(permission, SDDL_REVISION_1, &descriptor,
                                                              &size)) {
        win32::ThrowLastError();
    }
    const std::unique_ptr<void, decltype(&LocalFree)> owned(descriptor, &LocalFree);
    return {std::move(key), std::move(name), REG_BINARY, Bytes(descriptor, size)};
}

}  // namespace toast
