#include "tests/prompt/LaunchCalls.h"

#include <objbase.h>
#include <sddl.h>

LaunchCalls* LaunchCalls::current_ = nullptr;

LaunchCalls::LaunchCalls()
    : guidText_("StringFromGUID2", OnGuidText),
      openKey_("RegOpenKeyExW", OnOpenKey),
      closeKey_("RegCloseKey", OnCloseKey),
      setValue_("RegSetKeyValueW", OnSetValue),
      openToken_("OpenProcessToken", OnOpenToken),
      duplicate_("DuplicateTokenEx", OnDuplicate),
      convertSid_("ConvertStringSidToSidW", OnConvertSid),
      setInformation_("SetTokenInformation", OnSetInformation),
      systemDirectory_("GetSystemDirectoryW", OnSystemDirectory),
      start_("CreateProcessAsUserW", OnStart),
      wait_("WaitForSingleObject", OnWait),
      closeHandle_("CloseHandle", OnCloseHandle) {
    current_ = this;
}

LaunchCalls::~LaunchCalls() {
    current_ = nullptr;
}

bool LaunchCalls::Enter(const std::string& function) {
    order.push_back(function);
    const auto failure = failures_.find(function);
    if (failure == failures_.end()) {
        return false;
    }
    SetLastError(failure->second);
    return true;
}

int WINAPI LaunchCalls::OnGuidText(REFGUID id, wchar_t* text, int capacity) {
    static_cast<void>(current_->Enter("StringFromGUID2"));
    current_->guidCapacities.push_back(capacity);
    return current_->guidText_.Original<decltype(StringFromGUID2)>()(id, text, capacity);
}

LSTATUS WINAPI LaunchCalls::OnOpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access,
                                      HKEY* opened) {
    LaunchCalls& calls = *current_;
    const bool fails = calls.Enter("RegOpenKeyExW");
    KeyOpen open{parent, path, options, access, nullptr};
    LSTATUS status = 0;
    if (calls.openInstead) {
        status = calls.openInstead(open, opened);
    } else if (fails) {
        status = static_cast<LSTATUS>(GetLastError());
    } else {
        status = calls.openKey_.Original<decltype(RegOpenKeyExW)>()(parent, path, options, access, opened);
    }
    open.opened = *opened;
    calls.opens.push_back(open);
    return status;
}

LSTATUS WINAPI LaunchCalls::OnCloseKey(HKEY key) {
    static_cast<void>(current_->Enter("RegCloseKey"));
    current_->closedKeys.push_back(key);
    return current_->closeKey_.Original<decltype(RegCloseKey)>()(key);
}

LSTATUS WINAPI LaunchCalls::OnSetValue(HKEY parent, const wchar_t* path, const wchar_t* name, DWORD type,
                                       const void* data, DWORD size) {
    const bool fails = current_->Enter("RegSetKeyValueW");
    current_->values.push_back({parent, path, name, type, std::string(static_cast<const char*>(data), size)});
    if (fails) {
        return static_cast<LSTATUS>(GetLastError());
    }
    return current_->setValue_.Original<decltype(RegSetKeyValueW)>()(parent, path, name, type, data, size);
}

BOOL WINAPI LaunchCalls::OnOpenToken(HANDLE process, DWORD access, HANDLE* token) {
    const bool fails = current_->Enter("OpenProcessToken");
    current_->tokenOpens.push_back({process, access});
    if (fails) {
        return FALSE;
    }
    *token = kOwnToken;
    return TRUE;
}

BOOL WINAPI LaunchCalls::OnDuplicate(HANDLE token, DWORD access, SECURITY_ATTRIBUTES* attributes,
                                     SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type, HANDLE* duplicate) {
    const bool fails = current_->Enter("DuplicateTokenEx");
    current_->duplicates.push_back({token, access, attributes, level, type});
    if (fails) {
        return FALSE;
    }
    *duplicate = kDuplicate;
    return TRUE;
}

BOOL WINAPI LaunchCalls::OnConvertSid(const wchar_t* text, PSID* sid) {
    const bool fails = current_->Enter("ConvertStringSidToSidW");
    current_->sids.emplace_back(text);
    if (fails) {
        return FALSE;
    }
    return current_->convertSid_.Original<decltype(ConvertStringSidToSidW)>()(text, sid);
}

BOOL WINAPI LaunchCalls::OnSetInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass,
                                          void* information, DWORD length) {
    const bool fails = current_->Enter("SetTokenInformation");
    const auto& label = *static_cast<const TOKEN_MANDATORY_LABEL*>(information);
    const auto* const sid = static_cast<const char*>(label.Label.Sid);
    current_->informations.push_back({token, informationClass,
                                      std::string(sid, GetLengthSid(label.Label.Sid)), label.Label.Attributes,
                                      length});
    return fails ? FALSE : TRUE;
}

UINT WINAPI LaunchCalls::OnSystemDirectory(wchar_t* buffer, UINT size) {
    static_cast<void>(current_->Enter("GetSystemDirectoryW"));
    const UINT result = current_->systemDirectory_.Original<decltype(GetSystemDirectoryW)>()(buffer, size);
    current_->directoryQueries.push_back({buffer != nullptr, size, result});
    return result;
}

BOOL WINAPI LaunchCalls::OnStart(HANDLE token, const wchar_t* application, wchar_t* commandLine,
                                 SECURITY_ATTRIBUTES* processAttributes,
                                 SECURITY_ATTRIBUTES* threadAttributes, BOOL inheritHandles, DWORD flags,
                                 void* environment, const wchar_t* currentDirectory, STARTUPINFOW* startup,
                                 PROCESS_INFORMATION* process) {
    LaunchCalls& calls = *current_;
    const bool fails = calls.Enter("CreateProcessAsUserW");
    calls.starts.push_back({token, application, commandLine, processAttributes, threadAttributes,
                            inheritHandles, flags, environment, currentDirectory, *startup});
    if (fails) {
        return FALSE;
    }
    process->hProcess = kProcess;
    process->hThread = kThread;
    if (calls.whileStarting) {
        calls.whileStarting();
    }
    return TRUE;
}

// The locks of the C++ library wait for and close handles of their own.
DWORD WINAPI LaunchCalls::OnWait(HANDLE handle, DWORD timeout) {
    if (handle != kProcess) {
        return current_->wait_.Original<decltype(WaitForSingleObject)>()(handle, timeout);
    }
    static_cast<void>(current_->Enter("WaitForSingleObject"));
    current_->waits.push_back({handle, timeout});
    return current_->waitResult;
}

BOOL WINAPI LaunchCalls::OnCloseHandle(HANDLE handle) {
    if (handle != nullptr && handle != kOwnToken && handle != kDuplicate && handle != kProcess &&
        handle != kThread) {
        return current_->closeHandle_.Original<decltype(CloseHandle)>()(handle);
    }
    static_cast<void>(current_->Enter("CloseHandle"));
    current_->closedHandles.push_back(handle);
    return handle != nullptr ? TRUE : FALSE;
}
