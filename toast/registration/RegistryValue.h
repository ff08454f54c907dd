#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace toast {

// A value below HKEY_LOCAL_MACHINE.
struct RegistryValue {
    std::wstring key;
    std::wstring name;  // empty for the key's default value
    DWORD type;
    std::vector<std::uint8_t> data;
};

[[nodiscard]] RegistryValue TextValue(std::wstring key, std::wstring name, std::wstring_view text);
[[nodiscard]] RegistryValue NumberValue(std::wstring key, std::wstring name, DWORD number);
// A self-relative security descriptor. Throws win32::Win32Error when `permission` is not in the security
// descriptor definition language.
[[nodiscard]] RegistryValue PermissionValue(std::wstring key, std::wstring name, const wchar_t* permission);

}  // namespace toast
