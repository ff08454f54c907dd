#include "tests/service/RegistryCalls.h"

#include <array>
#include <cstdio>
#include <string_view>

namespace {

std::string Narrow(const wchar_t* text) {
    if (text == nullptr) {
        return "null";
    }
    std::string narrow;
    for (const wchar_t character : std::wstring_view(text)) {
        narrow.push_back(static_cast<char>(character));
    }
    return narrow;
}

std::string Hex(DWORD value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%lX", value);
    return text.data();
}

std::string NullOrNot(const void* pointer) {
    return pointer == nullptr ? "null" : "not null";
}

}  // namespace

RegistryCalls* RegistryCalls::current_ = nullptr;

RegistryCalls::RegistryCalls()
    : openKey_("RegOpenKeyExW", OnOpenKey),
      queryValue_("RegQueryValueExW", OnQueryValue),
      createKey_("RegCreateKeyExW", OnCreateKey),
      setValue_("RegSetValueExW", OnSetValue),
      closeKey_("RegCloseKey", OnCloseKey) {
    current_ = this;
}

RegistryCalls::~RegistryCalls() {
    current_ = nullptr;
}

std::string RegistryCalls::NameOf(HKEY key) const {
    if (key == HKEY_LOCAL_MACHINE) {
        return "HKEY_LOCAL_MACHINE";
    }
    return key != nullptr && key == opened_ ? "key" : "another key";
}

LSTATUS WINAPI RegistryCalls::OnOpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access,
                                        HKEY* key) {
    RegistryCalls& calls = *current_;
    calls.lines_.push_back("RegOpenKeyExW(" + calls.NameOf(parent) + ", " + Narrow(path) + ", " +
                           std::to_string(options) + ", " + Hex(access) + ")");
    if (calls.openResult != ERROR_SUCCESS) {
        return calls.openResult;
    }
    const LSTATUS result =
        calls.openKey_.Original<decltype(::RegOpenKeyExW)>()(parent, path, options, access, key);
    calls.opened_ = *key;
    return result;
}

LSTATUS WINAPI RegistryCalls::OnQueryValue(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type,
                                           BYTE* data, DWORD* size) {
    RegistryCalls& calls = *current_;
    calls.lines_.push_back("RegQueryValueExW(" + calls.NameOf(key) + ", " + Narrow(name) + ", " +
                           NullOrNot(reserved) + ", " + NullOrNot(type) + ", " + std::to_string(*size) +
                           " bytes)");
    if (calls.queryResult != ERROR_SUCCESS) {
        return calls.queryResult;
    }
    return calls.queryValue_.Original<decltype(::RegQueryValueExW)>()(key, name, reserved, type, data, size);
}

LSTATUS WINAPI RegistryCalls::OnCreateKey(HKEY parent, const wchar_t* path, DWORD reserved,
                                          wchar_t* className, DWORD options, REGSAM access,
                                          const SECURITY_ATTRIBUTES* security, HKEY* key,
                                          DWORD* disposition) {
    RegistryCalls& calls = *current_;
    calls.lines_.push_back("RegCreateKeyExW(" + calls.NameOf(parent) + ", " + Narrow(path) + ", " +
                           std::to_string(reserved) + ", " + Narrow(className) + ", " +
                           std::to_string(options) + ", " + Hex(access) + ", " + NullOrNot(security) + ", " +
                           NullOrNot(disposition) + ")");
    if (calls.createResult != ERROR_SUCCESS) {
        return calls.createResult;
    }
    const LSTATUS result = calls.createKey_.Original<decltype(::RegCreateKeyExW)>()(
        parent, path, reserved, className, options, access, const_cast<SECURITY_ATTRIBUTES*>(security), key,
        disposition);
    calls.opened_ = *key;
    return result;
}

LSTATUS WINAPI RegistryCalls::OnSetValue(HKEY key, const wchar_t* name, DWORD reserved, DWORD type,
                                         const BYTE* data, DWORD size) {
    RegistryCalls& calls = *current_;
    calls.lines_.push_back("RegSetValueExW(" + calls.NameOf(key) + ", " + Narrow(name) + ", " +
                           std::to_string(reserved) + ", " + std::to_string(type) + ", " +
                           Narrow(reinterpret_cast<const wchar_t*>(data)) + ", " + std::to_string(size) +
                           " bytes)");
    if (calls.setResult != ERROR_SUCCESS) {
        return calls.setResult;
    }
    return calls.setValue_.Original<decltype(::RegSetValueExW)>()(key, name, reserved, type, data, size);
}

LSTATUS WINAPI RegistryCalls::OnCloseKey(HKEY key) {
    RegistryCalls& calls = *current_;
    calls.lines_.push_back("RegCloseKey(" + calls.NameOf(key) + ")");
    return calls.closeKey_.Original<decltype(::RegCloseKey)>()(key);
}
