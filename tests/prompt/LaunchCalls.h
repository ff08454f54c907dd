#pragma once

#include "tests/support/ImportRedirect.h"

#include <windows.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

// Stands in for the tokens and processes that the launch of the toast controller works with, records every
// call that it makes in order, and makes single ones fail. The registry behind it is the machine's. Only one
// exists at a time.
class LaunchCalls {
  public:
    // What the stand-ins give out.
    static inline const HANDLE kOwnToken = reinterpret_cast<HANDLE>(0x1A1);
    static inline const HANDLE kDuplicate = reinterpret_cast<HANDLE>(0x1A2);
    static inline const HANDLE kProcess = reinterpret_cast<HANDLE>(0x1A3);
    static inline const HANDLE kThread = reinterpret_cast<HANDLE>(0x1A4);

    struct KeyOpen {
        HKEY parent;
        std::wstring path;
        DWORD options;
        REGSAM access;
        HKEY opened;
    };
    struct KeyValue {
        HKEY parent;
        std::wstring path;
        std::wstring name;
        DWORD type;
        std::string data;
    };
    struct TokenOpen {
        HANDLE process;
        DWORD access;
    };
    struct TokenDuplicate {
        HANDLE token;
        DWORD access;
        const SECURITY_ATTRIBUTES* attributes;
        int level;
        int type;
    };
    struct TokenInformation {
        HANDLE token;
        int informationClass;
        std::string sid;
        DWORD attributes;
        DWORD length;
    };
    struct DirectoryQuery {
        bool hasBuffer;
        UINT size;
        UINT result;
    };
    struct Start {
        HANDLE token;
        std::wstring application;
        std::wstring commandLine;
        const SECURITY_ATTRIBUTES* processAttributes;
        const SECURITY_ATTRIBUTES* threadAttributes;
        BOOL inheritHandles;
        DWORD flags;
        const void* environment;
        const wchar_t* currentDirectory;
        STARTUPINFOW startup;
    };
    struct Wait {
        HANDLE handle;
        DWORD timeout;
    };

    LaunchCalls();
    ~LaunchCalls();

    LaunchCalls(const LaunchCalls&) = delete;
    LaunchCalls& operator=(const LaunchCalls&) = delete;

    // The function fails from now on, with this last error or, for those of the registry, this status.
    void Fail(const std::string& function, DWORD error) { failures_[function] = error; }
    // Result of the wait for the process.
    DWORD waitResult = WAIT_OBJECT_0;
    // Runs inside the start of the process, for what the process would do.
    std::function<void()> whileStarting;
    // Run inside the open of a key, after it was recorded: the status and the handle that it gives.
    std::function<LSTATUS(const KeyOpen&, HKEY*)> openInstead;

    // The names of the calls in the order in which they were made.
    std::vector<std::string> order;
    std::vector<int> guidCapacities;
    std::vector<KeyOpen> opens;
    std::vector<HKEY> closedKeys;
    std::vector<KeyValue> values;
    std::vector<TokenOpen> tokenOpens;
    std::vector<TokenDuplicate> duplicates;
    std::vector<std::wstring> sids;
    std::vector<TokenInformation> informations;
    std::vector<DirectoryQuery> directoryQueries;
    std::vector<Start> starts;
    std::vector<Wait> waits;
    std::vector<HANDLE> closedHandles;

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

    // Notes the call; true when it is to fail, with the last error set.
    [[nodiscard]] bool Enter(const std::string& function);

    static LaunchCalls* current_;

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
