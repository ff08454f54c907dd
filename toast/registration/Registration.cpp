#include "toast/registration/Registration.h"

#include <windows.h>

#include <cstddef>
#include <exception>
#include <string>

#include "toast/registration/ProgramPath.h"
#include "toast/registration/RegistrationPlan.h"
#include "toast/registration/RegistryChanges.h"

namespace toast {
namespace {

constexpr std::size_t kLongestPath = 32'768;

// A text of the class's server; empty when there is none.
std::wstring ServerText(const wchar_t* name) {
    std::wstring text(kLongestPath, L'\0');
    auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kServerKey, name, RRF_RT_REG_SZ, nullptr, text.data(), &size) !=
        ERROR_SUCCESS) {
        return {};
    }
    text.resize(size / sizeof(wchar_t) - 1);
    return text;
}

bool IsThere(const std::wstring& file) {
    return GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// The program of a command line. An unquoted path may have blanks: the shortest that is there, as Windows
// looks for it.
std::wstring ProgramOf(const std::wstring& commandLine) {
    if (commandLine.starts_with(L'"')) {
        return commandLine.substr(1, commandLine.find(L'"', 1) - 1);
    }
    for (std::size_t end = commandLine.find(L' '); end != std::wstring::npos;
         end = commandLine.find(L' ', end + 1)) {
        std::wstring path = commandLine.substr(0, end);
        if (IsThere(path)) {
            return path;
        }
    }
    return commandLine;
}

bool IsOtherProgram(const std::wstring& file) {
    return !file.empty() && lstrcmpiW(file.c_str(), ProgramPath().c_str()) != 0 && IsThere(file);
}

// Most programs write the command line alone; one that has taken the class over may have left the other
// value.
bool OtherProgramIsRegistered() {
    return IsOtherProgram(ServerText(kServerExecutable)) || IsOtherProgram(ProgramOf(ServerText(L"")));
}

RegistrationResult ResultOf(LSTATUS status) {
    if (status == ERROR_SUCCESS) {
        return RegistrationResult::kDone;
    }
    return status == ERROR_ACCESS_DENIED ? RegistrationResult::kAccessDenied : RegistrationResult::kFailed;
}

}  // namespace

RegistrationResult Register() {
    if (OtherProgramIsRegistered()) {
        return RegistrationResult::kOtherProgram;
    }
    try {
        RegistryChanges changes;
        for (const RegistryValue& value : RegistrationPlan(ProgramPath())) {
            const LSTATUS status = changes.Write(value);
            if (status != ERROR_SUCCESS) {
                return ResultOf(status);
            }
        }
        changes.Keep();
    } catch (const std::exception&) {
        return RegistrationResult::kFailed;
    }
    return RegistrationResult::kDone;
}

RegistrationResult Unregister() {
    return OtherProgramIsRegistered() ? RegistrationResult::kOtherProgram
                                      : ResultOf(DeleteKeys(RegistrationKeys()));
}

}  // namespace toast
