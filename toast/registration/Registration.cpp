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

// The file that serves the class; empty when there is none.
std::wstring RegisteredProgram() {
    std::wstring path(kLongestPath, L'\0');
    auto size = static_cast<DWORD>(path.size() * sizeof(wchar_t));
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kServerKey, kServerExecutable, RRF_RT_REG_SZ, nullptr, path.data(),
                     &size) != ERROR_SUCCESS) {
        return {};
    }
    path.resize(size / sizeof(wchar_t) - 1);
    return path;
}

bool OtherProgramIsRegistered() {
    const std::wstring registered = RegisteredProgram();
    return !registered.empty() && lstrcmpiW(registered.c_str(), ProgramPath().c_str()) != 0 &&
           GetFileAttributesW(registered.c_str()) != INVALID_FILE_ATTRIBUTES;
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
