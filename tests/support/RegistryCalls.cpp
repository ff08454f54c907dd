#include "tests/support/RegistryCalls.h"

#include "tests/support/Text.h"

#include <algorithm>
#include <iterator>

namespace test_support {

RegistryCalls::RegistryCalls(const std::vector<std::string>& functions) {
    const std::map<std::string, void*> replacements{
        {"RegOpenKeyExW", reinterpret_cast<void*>(OnOpenKey)},
        {"RegCreateKeyExW", reinterpret_cast<void*>(OnCreateKey)},
        {"RegQueryInfoKeyW", reinterpret_cast<void*>(OnQueryInfo)},
        {"RegEnumKeyExW", reinterpret_cast<void*>(OnEnumeration)},
        {"RegGetValueW", reinterpret_cast<void*>(OnGetValue)},
        {"RegQueryValueExW", reinterpret_cast<void*>(OnQueryValue)},
        {"RegSetValueExW", reinterpret_cast<void*>(OnSetValue)},
        {"RegCloseKey", reinterpret_cast<void*>(OnCloseKey)},
    };
    for (const std::string& function : functions) {
        redirects_.try_emplace(function, function.c_str(), replacements.at(function));
    }
}

std::vector<std::string> RegistryCalls::LinesOf(const std::string& function) const {
    std::vector<std::string> found;
    std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(found),
                 [&function](const std::string& line) { return line.starts_with(function + "("); });
    return found;
}

std::string RegistryCalls::NameOf(HKEY key) const {
    if (key == HKEY_LOCAL_MACHINE) {
        return "HKEY_LOCAL_MACHINE";
    }
    const auto last = std::find(opened_.rbegin(), opened_.rend(), key);
    return last == opened_.rend() ? "another key" : Text("key ", opened_.rend() - last);
}

template <typename Function, typename... Arguments>
LSTATUS RegistryCalls::Pass(const std::string& function, const std::string& line, Arguments... arguments) {
    lines_.push_back(Text(function, "(", line, ")"));
    const Call call{function, ++counts_[function]};
    if (const auto action = before_.find(call); action != before_.end()) {
        action->second();
    }
    const auto failure = failures_.find(call);
    return failure != failures_.end() ? failure->second
                                      : redirects_.at(function).Original<Function>()(arguments...);
}

LSTATUS WINAPI RegistryCalls::OnOpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access,
                                        HKEY* opened) {
    RegistryCalls& calls = *current_;
    const LSTATUS status = calls.Pass<decltype(RegOpenKeyExW)>(
        "RegOpenKeyExW", Text(calls.NameOf(parent), ", ", Narrow(path), ", ", options, ", 0x", Hex(access)),
        parent, path, options, access, opened);
    if (status == ERROR_SUCCESS) {
        calls.opened_.push_back(*opened);
    }
    return status;
}

LSTATUS WINAPI RegistryCalls::OnCreateKey(HKEY parent, const wchar_t* path, DWORD reserved,
                                          wchar_t* className, DWORD options, REGSAM access,
                                          SECURITY_ATTRIBUTES* security, HKEY* opened, DWORD* disposition) {
    RegistryCalls& calls = *current_;
    const LSTATUS status = calls.Pass<decltype(RegCreateKeyExW)>(
        "RegCreateKeyExW",
        Text(calls.NameOf(parent), ", ", Narrow(path), ", ", reserved, ", ", NarrowOrNull(className), ", ",
             options, ", 0x", Hex(access), ", ", NullOrNot(security), ", ", NullOrNot(disposition)),
        parent, path, reserved, className, options, access, security, opened, disposition);
    if (status == ERROR_SUCCESS) {
        calls.opened_.push_back(*opened);
    }
    return status;
}

LSTATUS WINAPI RegistryCalls::OnQueryInfo(HKEY key, wchar_t* className, DWORD* classNameLength,
                                          DWORD* reserved, DWORD* subkeys, DWORD* longestSubkey,
                                          DWORD* longestClass, DWORD* values, DWORD* longestName,
                                          DWORD* longestValue, DWORD* descriptorSize, FILETIME* written) {
    return current_->Pass<decltype(RegQueryInfoKeyW)>(
        "RegQueryInfoKeyW",
        Text(current_->NameOf(key), className == nullptr ? ", no class name of " : ", class name of ",
             *classNameLength, " characters, ", NullOrNot(reserved)),
        key, className, classNameLength, reserved, subkeys, longestSubkey, longestClass, values, longestName,
        longestValue, descriptorSize, written);
}

LSTATUS WINAPI RegistryCalls::OnEnumeration(HKEY key, DWORD index, wchar_t* name, DWORD* nameLength,
                                            DWORD* reserved, wchar_t* className, DWORD* classNameLength,
                                            FILETIME* written) {
    return current_->Pass<decltype(RegEnumKeyExW)>(
        "RegEnumKeyExW",
        Text(current_->NameOf(key), ", ", index, ", ", *nameLength, " characters, ", NullOrNot(reserved)),
        key, index, name, nameLength, reserved, className, classNameLength, written);
}

LSTATUS WINAPI RegistryCalls::OnGetValue(HKEY key, const wchar_t* subkey, const wchar_t* name, DWORD flags,
                                         DWORD* type, void* data, DWORD* size) {
    return current_->Pass<decltype(RegGetValueW)>(
        "RegGetValueW",
        Text(current_->NameOf(key), ", ", NarrowOrNull(subkey), ", ", Narrow(name), ", 0x", Hex(flags), ", ",
             data == nullptr ? "no data" : Text(*size, " bytes")),
        key, subkey, name, flags, type, data, size);
}

LSTATUS WINAPI RegistryCalls::OnQueryValue(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type,
                                           BYTE* data, DWORD* size) {
    return current_->Pass<decltype(RegQueryValueExW)>(
        "RegQueryValueExW",
        Text(current_->NameOf(key), ", ", Narrow(name), ", ", NullOrNot(reserved), ", ", NullOrNot(type),
             ", ", *size, " bytes"),
        key, name, reserved, type, data, size);
}

LSTATUS WINAPI RegistryCalls::OnSetValue(HKEY key, const wchar_t* name, DWORD reserved, DWORD type,
                                         const BYTE* data, DWORD size) {
    return current_->Pass<decltype(RegSetValueExW)>(
        "RegSetValueExW",
        Text(current_->NameOf(key), ", ", Narrow(name), ", ", reserved, ", ", type, ", ",
             Narrow(reinterpret_cast<const wchar_t*>(data)), ", ", size, " bytes"),
        key, name, reserved, type, data, size);
}

LSTATUS WINAPI RegistryCalls::OnCloseKey(HKEY key) {
    return current_->Pass<decltype(RegCloseKey)>("RegCloseKey", current_->NameOf(key), key);
}

}  // namespace test_support
