#include "tests/monitor/RegistryCalls.h"

RegistryCalls* RegistryCalls::current_ = nullptr;

RegistryCalls::RegistryCalls()
    : open_("RegOpenKeyExW", OnOpen),
      count_("RegQueryInfoKeyW", OnCount),
      enumeration_("RegEnumKeyExW", OnEnumeration),
      read_("RegGetValueW", OnRead),
      close_("RegCloseKey", OnClose) {
    current_ = this;
}

RegistryCalls::~RegistryCalls() {
    current_ = nullptr;
}

void RegistryCalls::Fail(const std::string& function, int call, LSTATUS status) {
    failures_[{function, call}] = status;
}

void RegistryCalls::BeforeRead(int call, std::function<void()> action) {
    beforeReads_[call] = std::move(action);
}

std::optional<LSTATUS> RegistryCalls::ScriptedFailure(const std::string& function) {
    const auto failure = failures_.find({function, ++callCounts_[function]});
    return failure == failures_.end() ? std::nullopt : std::optional(failure->second);
}

LSTATUS WINAPI RegistryCalls::OnOpen(HKEY parent, const wchar_t* path, DWORD options, REGSAM access,
                                     HKEY* opened) {
    RegistryCalls& calls = *current_;
    const auto failure = calls.ScriptedFailure("RegOpenKeyExW");
    const LSTATUS status =
        failure ? *failure
                : calls.open_.Original<decltype(RegOpenKeyExW)>()(parent, path, options, access, opened);
    calls.opens.push_back({parent, path, options, access, *opened});
    return status;
}

LSTATUS WINAPI RegistryCalls::OnCount(HKEY key, wchar_t* className, DWORD* classNameLength, DWORD* reserved,
                                      DWORD* subkeys, DWORD* longestSubkey, DWORD* longestClass,
                                      DWORD* values, DWORD* longestName, DWORD* longestValue,
                                      DWORD* descriptorSize, FILETIME* written) {
    RegistryCalls& calls = *current_;
    calls.counts.push_back({key, className != nullptr, *classNameLength, reserved});
    if (const auto failure = calls.ScriptedFailure("RegQueryInfoKeyW")) {
        return *failure;
    }
    return calls.count_.Original<decltype(RegQueryInfoKeyW)>()(
        key, className, classNameLength, reserved, subkeys, longestSubkey, longestClass, values, longestName,
        longestValue, descriptorSize, written);
}

LSTATUS WINAPI RegistryCalls::OnEnumeration(HKEY key, DWORD index, wchar_t* name, DWORD* nameLength,
                                            DWORD* reserved, wchar_t* className, DWORD* classNameLength,
                                            FILETIME* written) {
    RegistryCalls& calls = *current_;
    calls.enumerations.push_back({key, index, *nameLength, reserved});
    if (const auto failure = calls.ScriptedFailure("RegEnumKeyExW")) {
        return *failure;
    }
    return calls.enumeration_.Original<decltype(RegEnumKeyExW)>()(key, index, name, nameLength, reserved,
                                                                  className, classNameLength, written);
}

LSTATUS WINAPI RegistryCalls::OnRead(HKEY key, const wchar_t* subkey, const wchar_t* value, DWORD flags,
                                     DWORD* type, void* data, DWORD* size) {
    RegistryCalls& calls = *current_;
    calls.reads.push_back({key, subkey == nullptr ? std::nullopt : std::optional<std::wstring>(subkey), value,
                           flags, data != nullptr, *size});
    const auto action = calls.beforeReads_.find(static_cast<int>(calls.reads.size()));
    if (action != calls.beforeReads_.end()) {
        action->second();
    }
    if (const auto failure = calls.ScriptedFailure("RegGetValueW")) {
        return *failure;
    }
    return calls.read_.Original<decltype(RegGetValueW)>()(key, subkey, value, flags, type, data, size);
}

LSTATUS WINAPI RegistryCalls::OnClose(HKEY key) {
    current_->closes.push_back(key);
    return current_->close_.Original<decltype(RegCloseKey)>()(key);
}
