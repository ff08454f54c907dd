#include "toast/registration/RegistryChanges.h"

#include <algorithm>
#include <optional>
#include <string>

#include "win32/UniqueHandle.h"

namespace toast {
namespace {

LSTATUS Open(const std::wstring& key, REGSAM access) {
    win32::UniqueRegistryKey opened;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, access, opened.Receive());
}

// The uppermost part of a key's path that is not there; empty when all of it is.
std::wstring MissingPart(const std::wstring& key) {
    std::size_t end = 0;
    while (end != std::wstring::npos) {
        end = key.find(L'\\', end + 1);
        std::wstring part = key.substr(0, end);
        if (Open(part, KEY_QUERY_VALUE) == ERROR_FILE_NOT_FOUND) {
            return part;
        }
    }
    return {};
}

std::optional<RegistryValue> ReadValue(const std::wstring& key, const std::wstring& name) {
    RegistryValue value{key, name, REG_NONE, {}};
    DWORD size = 0;
    const auto read = [&](void* data) {
        return RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name.c_str(), RRF_RT_ANY | RRF_NOEXPAND,
                            &value.type, data, &size) == ERROR_SUCCESS;
    };
    bool isThere = read(nullptr);
    value.data.resize(size);
    isThere = isThere && read(value.data.data());
    value.data.resize(size);
    return isThere ? std::optional(value) : std::nullopt;
}

LSTATUS SetValue(const RegistryValue& value) {
    return RegSetKeyValueW(HKEY_LOCAL_MACHINE, value.key.c_str(), value.name.c_str(), value.type,
                           value.data.data(), static_cast<DWORD>(value.data.size()));
}

// What brings back what a write is about to change.
std::function<void()> UndoOf(const std::wstring& key, const std::wstring& name) {
    std::wstring missing = MissingPart(key);
    if (!missing.empty()) {
        return [part = std::move(missing)] { RegDeleteTreeW(HKEY_LOCAL_MACHINE, part.c_str()); };
    }
    const std::optional<RegistryValue> before = ReadValue(key, name);
    return [key, name, before] {
        if (before) {
            SetValue(*before);
        } else {
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name.c_str());
        }
    };
}

LSTATUS DeleteKey(const std::wstring& key) {
    const LSTATUS status = RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

}  // namespace

RegistryChanges::~RegistryChanges() {
    std::for_each(undo_.rbegin(), undo_.rend(), [](const auto& undo) { undo(); });
}

LSTATUS RegistryChanges::Write(const RegistryValue& value) {
    auto undo = UndoOf(value.key, value.name);
    const LSTATUS status = SetValue(value);
    // A failed write may have made the key all the same; taking nothing back does no harm.
    undo_.push_back(std::move(undo));
    return status;
}

LSTATUS DeleteKeys(const std::vector<std::wstring>& keys) {
    for (const std::wstring& key : keys) {
        const LSTATUS status = Open(key, DELETE | KEY_READ | KEY_WRITE);
        if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) {
            return status;
        }
    }
    LSTATUS first = ERROR_SUCCESS;
    for (const std::wstring& key : keys) {
        const LSTATUS status = DeleteKey(key);
        first = first == ERROR_SUCCESS ? status : first;
    }
    return first;
}

}  // namespace toast
