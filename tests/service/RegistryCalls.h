#pragma once

#include "tests/support/ImportRedirect.h"

#include <windows.h>

#include <string>
#include <vector>

// Listens to the program's registry calls: each is passed on to the registry, or fails with the code that a
// test sets, and is kept as one line with all its arguments. Opened keys are called "key" in the lines.
class RegistryCalls {
  public:
    RegistryCalls();
    ~RegistryCalls();

    RegistryCalls(const RegistryCalls&) = delete;
    RegistryCalls& operator=(const RegistryCalls&) = delete;

    // What the call answers from now on instead of reaching the registry; 0 ends it.
    LSTATUS openResult = ERROR_SUCCESS;
    LSTATUS queryResult = ERROR_SUCCESS;
    LSTATUS createResult = ERROR_SUCCESS;
    LSTATUS setResult = ERROR_SUCCESS;

    [[nodiscard]] const std::vector<std::string>& Lines() const { return lines_; }

  private:
    static LSTATUS WINAPI OnOpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access,
                                    HKEY* key);
    static LSTATUS WINAPI OnQueryValue(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type,
                                       BYTE* data, DWORD* size);
    static LSTATUS WINAPI OnCreateKey(HKEY parent, const wchar_t* path, DWORD reserved, wchar_t* className,
                                      DWORD options, REGSAM access, const SECURITY_ATTRIBUTES* security,
                                      HKEY* key, DWORD* disposition);
    static LSTATUS WINAPI OnSetValue(HKEY key, const wchar_t* name, DWORD reserved, DWORD type,
                                     const BYTE* data, DWORD size);
    static LSTATUS WINAPI OnCloseKey(HKEY key);

    [[nodiscard]] std::string NameOf(HKEY key) const;

    static RegistryCalls* current_;

    std::vector<std::string> lines_;
    HKEY opened_ = nullptr;

    test_support::ImportRedirect openKey_;
    test_support::ImportRedirect queryValue_;
    test_support::ImportRedirect createKey_;
    test_support::ImportRedirect setValue_;
    test_support::ImportRedirect closeKey_;
};
