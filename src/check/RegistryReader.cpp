#include "check/RegistryReader.h"

#include "win32/UniqueHandle.h"

#include <array>
#include <cstring>
#include <cwchar>

namespace check {
namespace {

constexpr DWORD kKeyNameCapacity = 256;

LSTATUS OpenForReading(const std::wstring& key, win32::UniqueRegistryKey& opened,
                       REGSAM access = KEY_QUERY_VALUE) {
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, access, opened.Receive());
}

}  // namespace

std::wstring RegistryReader::Value::Text() const {
    if ((type != REG_SZ && type != REG_EXPAND_SZ) || data.empty()) {
        return {};
    }
    std::wstring text(data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
    text.resize(wcsnlen(text.data(), text.size()));
    return text;
}

std::wstring RegistryReader::Value::Expanded() const {
    return type == REG_EXPAND_SZ ? Expand(Text()) : Text();
}

DWORD RegistryReader::Value::Number() const {
    DWORD number = 0;
    if (type == REG_DWORD && data.size() == sizeof number) {
        std::memcpy(&number, data.data(), sizeof number);
    }
    return number;
}

RegistryReader::Value RegistryReader::Read(const std::wstring& key, const std::wstring& name) {
    Value value;
    win32::UniqueRegistryKey opened;
    value.error = OpenForReading(key, opened);
    if (value.error != ERROR_SUCCESS) {
        return value;
    }
    // A value that grows meanwhile is asked for again.
    DWORD size = 0;
    do {
        value.data.resize(size);
        value.error = RegQueryValueExW(opened.Get(), name.c_str(), nullptr, &value.type,
                                       value.data.empty() ? nullptr : value.data.data(), &size);
    } while (value.error == ERROR_MORE_DATA || (value.error == ERROR_SUCCESS && size > value.data.size()));
    if (value.error == ERROR_SUCCESS) {
        value.data.resize(size);
    }
    return value;
}

std::wstring RegistryReader::Expand(const std::wstring& text) {
    const DWORD size = ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
    std::wstring expanded(size, L'\0');
    const DWORD written = ExpandEnvironmentStringsW(text.c_str(), expanded.data(), size);
    if (written == 0 || written > size) {
        return text;
    }
    expanded.resize(written - 1);
    return expanded;
}

std::vector<std::wstring> RegistryReader::SubKeys(const std::wstring& key) {
    std::vector<std::wstring> names;
    win32::UniqueRegistryKey opened;
    if (OpenForReading(key, opened, KEY_ENUMERATE_SUB_KEYS) != ERROR_SUCCESS) {
        return names;
    }
    std::array<wchar_t, kKeyNameCapacity> name{};
    DWORD length = kKeyNameCapacity;
    while (RegEnumKeyExW(opened.Get(), static_cast<DWORD>(names.size()), name.data(), &length, nullptr,
                         nullptr, nullptr, nullptr) == ERROR_SUCCESS) {
        names.emplace_back(name.data(), length);
        length = kKeyNameCapacity;
    }
    return names;
}

LSTATUS RegistryReader::Open(const std::wstring& key) {
    win32::UniqueRegistryKey opened;
    return OpenForReading(key, opened);
}

}  // namespace check
