#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

// Stands in for the tokens and processes that the launch of the toast controller works with, keeps every call
// that it makes as one line with its arguments, and makes single ones fail. The registry behind it is the
// machine's. Handles have names in the lines, for example
//   DuplicateTokenEx(own token, 0xF00FF, null, level 2, type 1)
//   WaitForSingleObject(process, 0xFFFFFFFF)
//   CloseHandle(null)
class LaunchCalls : public test_support::OnlyOne<LaunchCalls> {
  public:
    LaunchCalls();

    // The function fails from now on, with this last error or, for those of the registry, this status.
    void Fail(const std::string& function, DWORD error) { failures_[function] = error; }
    // Result of the wait for the process.
    DWORD waitResult = WAIT_OBJECT_0;
    // Runs inside the start of the process, for what the process would do.
    std::function<void()> whileStarting;
    // Runs inside the open of a key, in its place: the status and the handle that it gives.
    std::function<LSTATUS(HKEY*)> openInstead;

    void Forget() { lines_.clear(); }
    // The names of the functions in the order in which they were called.
    [[nodiscard]] std::vector<std::string> Order() const;
    // The calls of one function.
    [[nodiscard]] std::vector<std::string> LinesOf(const std::string& function) const;
    // What the last start of a process was given.
    [[nodiscard]] const STARTUPINFOW& Startup() const { return startup_; }

  private:
    static int WINAPI OnGuidText(REFGUID id, wchar_t* text, int capacity);
    static LSTATUS WINAPI OnOpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access,
                                    HKEY* opened);
    static LSTATUS WINAPI OnCloseKey(HKEY key);
    static LSTATUS WINAPI OnSetValue(HKEY parent, const wchar_t* path, const wchar_t* name, DWORD type,
                                     const void* data, DWORD size);
    static BOOL WINAPI OnOpenToken(HANDLE process, DWORD access, HANDLE* token);
    static BOOL WINAPI OnDuplicate(HANDLE token, DWORD access, SECURITY_ATTRIBUTES* attributes,
                                   SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type, HANDLE* duplicate);
    static BOOL WINAPI OnConvertSid(const wchar_t* text, PSID* sid);
    static BOOL WINAPI OnSetInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass,
                                        void* information, DWORD length);
    static UINT WINAPI OnSystemDirectory(wchar_t* buffer, UINT size);
    static BOOL WINAPI OnStart(HANDLE token, const wchar_t* application, wchar_t* commandLine,
                               SECURITY_ATTRIBUTES* processAttributes, SECURITY_ATTRIBUTES* threadAttributes,
                               BOOL inheritHandles, DWORD flags, void* environment,
                               const wchar_t* currentDirectory, STARTUPINFOW* startup,
                               PROCESS_INFORMATION* process);
    static DWORD WINAPI OnWait(HANDLE handle, DWORD timeout);
    static BOOL WINAPI OnCloseHandle(HANDLE handle);

    // Keeps the call; true when it is to fail, with the last error set.
    bool Enter(const std::string& function, const std::string& arguments);

    std::vector<std::string> lines_;
    STARTUPINFOW startup_{};
    std::map<std::string, DWORD> failures_;
    test_support::ImportRedirect guidText_;
    test_support::ImportRedirect openKey_;
    test_support::ImportRedirect closeKey_;
    test_support::ImportRedirect setValue_;
    test_support::ImportRedirect openToken_;
    test_support::ImportRedirect duplicate_;
    test_support::ImportRedirect convertSid_;
    test_support::ImportRedirect setInformation_;
    test_support::ImportRedirect systemDirectory_;
    test_support::ImportRedirect start_;
    test_support::ImportRedirect wait_;
    test_support::ImportRedirect closeHandle_;
};
