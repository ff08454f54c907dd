#pragma once

#include "tests/support/ImportRedirect.h"

#include <windows.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Records the registry calls of a scan with their arguments, makes single ones fail, and passes the others on
// to the machine's registry. Only one exists at a time.
class RegistryCalls {
  public:
    struct Open {
        HKEY parent;
        std::wstring path;
        DWORD options;
        REGSAM access;
        HKEY opened;
    };
    struct Count {
        HKEY key;
        bool hasClassName;
        DWORD classNameCapacity;
        DWORD* reserved;
    };
    struct Enumeration {
        HKEY key;
        DWORD index;
        DWORD nameCapacity;
        DWORD* reserved;
    };
    struct Read {
        HKEY key;
        std::optional<std::wstring> subkey;
        std::wstring value;
        DWORD flags;
        bool hasBuffer;
        DWORD size;  // as handed in
    };

    RegistryCalls();
    ~RegistryCalls();

    RegistryCalls(const RegistryCalls&) = delete;
    RegistryCalls& operator=(const RegistryCalls&) = delete;

    // The `call`-th call (from 1) of this function fails with `status` and is not passed on.
    void Fail(const std::string& function, int call, LSTATUS status);
    // Runs before the `call`-th read of a value (from 1) is passed on.
    void BeforeRead(int call, std::function<void()> action);

    std::vector<Open> opens;
    std::vector<Count> counts;
    std::vector<Enumeration> enumerations;
    std::vector<Read> reads;
    std::vector<HKEY> closes;

  private:
    static LSTATUS WINAPI OnOpen(HKEY parent, const wchar_t* path, DWORD options, REGSAM access,
                                 HKEY* opened);
    static LSTATUS WINAPI OnCount(HKEY key, wchar_t* className, DWORD* classNameLength, DWORD* reserved,
                                  DWORD* subkeys, DWORD* longestSubkey, DWORD* longestClass, DWORD* values,
                                  DWORD* longestName, DWORD* longestValue, DWORD* descriptorSize,
                                  FILETIME* written);
    static LSTATUS WINAPI OnEnumeration(HKEY key, DWORD index, wchar_t* name, DWORD* nameLength,
                                        DWORD* reserved, wchar_t* className, DWORD* classNameLength,
                                        FILETIME* written);
    static LSTATUS WINAPI OnRead(HKEY key, const wchar_t* subkey, const wchar_t* value, DWORD flags,
                                 DWORD* type, void* data, DWORD* size);
    static LSTATUS WINAPI OnClose(HKEY key);

    [[nodiscard]] std::optional<LSTATUS> ScriptedFailure(const std::string& function);

    static RegistryCalls* current_;

    std::map<std::pair<std::string, int>, LSTATUS> failures_;
    std::map<std::string, int> callCounts_;
    std::map<int, std::function<void()>> beforeReads_;

    test_support::ImportRedirect open_;
    test_support::ImportRedirect count_;
    test_support::ImportRedirect enumeration_;
    test_support::ImportRedirect read_;
    test_support::ImportRedirect close_;
};
