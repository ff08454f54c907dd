#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace test_support {

// Listens to the program's registry calls: each is kept as one line with its arguments, and passed on to the
// machine's registry or made to fail. Keys are called "key 1", "key 2"... in the order in which they were
// opened, for example
//   RegOpenKeyExW(HKEY_LOCAL_MACHINE, SOFTWARE, 0, 0x20019)
//   RegCreateKeyExW(HKEY_LOCAL_MACHINE, SOFTWARE\Some, 0, null, 0, 0x20006, null, null)
//   RegQueryInfoKeyW(key 1, class name of 260 characters, null)
//   RegEnumKeyExW(key 1, 0, 255 characters, null)
//   RegGetValueW(key 2, null, Name, 0x2, 42 bytes), with "no data" for a question for the size
//   RegQueryValueExW(key 1, Name, null, null, 38 bytes)
//   RegSetValueExW(key 1, Name, 0, 1, text, 8 bytes)
//   RegCloseKey(key 1)
class RegistryCalls : public OnlyOne<RegistryCalls> {
  public:
    // Listens to these of the functions above; the program must import each.
    explicit RegistryCalls(const std::vector<std::string>& functions);

    // The `call`-th call (from 1) of this function fails with `status` and is not passed on.
    void Fail(const std::string& function, int call, LSTATUS status) { failures_[{function, call}] = status; }
    // Runs before the `call`-th call of this function is passed on.
    void Before(const std::string& function, int call, std::function<void()> action) {
        before_[{function, call}] = std::move(action);
    }

    [[nodiscard]] const std::vector<std::string>& Lines() const { return lines_; }
    // Those of one function.
    [[nodiscard]] std::vector<std::string> LinesOf(const std::string& function) const;

  private:
    using Call = std::pair<std::string, int>;

    static LSTATUS WINAPI OnOpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access,
                                    HKEY* opened);
    static LSTATUS WINAPI OnCreateKey(HKEY parent, const wchar_t* path, DWORD reserved, wchar_t* className,
                                      DWORD options, REGSAM access, SECURITY_ATTRIBUTES* security,
                                      HKEY* opened, DWORD* disposition);
    static LSTATUS WINAPI OnQueryInfo(HKEY key, wchar_t* className, DWORD* classNameLength, DWORD* reserved,
                                      DWORD* subkeys, DWORD* longestSubkey, DWORD* longestClass,
                                      DWORD* values, DWORD* longestName, DWORD* longestValue,
                                      DWORD* descriptorSize, FILETIME* written);
    static LSTATUS WINAPI OnEnumeration(HKEY key, DWORD index, wchar_t* name, DWORD* nameLength,
                                        DWORD* reserved, wchar_t* className, DWORD* classNameLength,
                                        FILETIME* written);
    static LSTATUS WINAPI OnGetValue(HKEY key, const wchar_t* subkey, const wchar_t* name, DWORD flags,
                                     DWORD* type, void* data, DWORD* size);
    static LSTATUS WINAPI OnQueryValue(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type,
                                       BYTE* data, DWORD* size);
    static LSTATUS WINAPI OnSetValue(HKEY key, const wchar_t* name, DWORD reserved, DWORD type,
                                     const BYTE* data, DWORD size);
    static LSTATUS WINAPI OnCloseKey(HKEY key);

    // Keeps the line of a call, and makes the call unless it is to fail.
    template <typename Function, typename... Arguments>
    LSTATUS Pass(const std::string& function, const std::string& line, Arguments... arguments);
    [[nodiscard]] std::string NameOf(HKEY key) const;

    std::vector<std::string> lines_;
    std::vector<HKEY> opened_;
    std::map<std::string, int> counts_;
    std::map<Call, LSTATUS> failures_;
    std::map<Call, std::function<void()>> before_;
    std::map<std::string, ImportRedirect> redirects_;
};

}  // namespace test_support
