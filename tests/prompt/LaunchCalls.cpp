#include "tests/prompt/LaunchCalls.h"

#include "tests/support/Text.h"

#include <objbase.h>
#include <sddl.h>

#include <algorithm>
#include <iterator>

namespace {

using test_support::Hex;
using test_support::HexBytes;
using test_support::Narrow;
using test_support::NullOrNot;
using test_support::Text;

// What the stand-ins give out.
const HANDLE kOwnToken = reinterpret_cast<HANDLE>(0x1A1);
const HANDLE kDuplicate = reinterpret_cast<HANDLE>(0x1A2);
const HANDLE kProcess = reinterpret_cast<HANDLE>(0x1A3);
const HANDLE kThread = reinterpret_cast<HANDLE>(0x1A4);

std::string NameOf(HANDLE handle) {
    static const std::map<HANDLE, std::string> names{
        {nullptr, "null"},     {kOwnToken, "own token"}, {kDuplicate, "duplicate"},
        {kProcess, "process"}, {kThread, "thread"},      {GetCurrentProcess(), "this process"}};
    const auto name = names.find(handle);
    return name == names.end() ? "another handle" : name->second;
}

std::string NameOf(HKEY key) {
    return key == HKEY_LOCAL_MACHINE  ? "HKEY_LOCAL_MACHINE"
           : key == HKEY_CURRENT_USER ? "HKEY_CURRENT_USER"
                                      : "another key";
}

}  // namespace

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
      closeHandle_("CloseHandle", OnCloseHandle) {}

std::vector<std::string> LaunchCalls::Order() const {
    std::vector<std::string> order;
    for (const std::string& line : lines_) {
        order.push_back(line.substr(0, line.find('(')));
    }
    return order;
}

std::vector<std::string> LaunchCalls::LinesOf(const std::string& function) const {
    std::vector<std::string> found;
    std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(found),
                 [&function](const std::string& line) { return line.starts_with(function + "("); });
    return found;
}

bool LaunchCalls::Enter(const std::string& function, const std::string& arguments) {
    lines_.push_back(Text(function, '(', arguments, ')'));
    const auto failure = failures_.find(function);
    if (failure == failures_.end()) {
        return false;
    }
    SetLastError(failure->second);
    return true;
}

int WINAPI LaunchCalls::OnGuidText(REFGUID id, wchar_t* text, int capacity) {
    current_->Enter("StringFromGUID2", Text(capacity, " characters"));
    return current_->guidText_.Original<decltype(StringFromGUID2)>()(id, text, capacity);
}

LSTATUS WINAPI LaunchCalls::OnOpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access,
                                      HKEY* opened) {
    LaunchCalls& calls = *current_;
    const bool fails = calls.Enter(
        "RegOpenKeyExW", Text(NameOf(parent), ", ", Narrow(path), ", ", options, ", 0x", Hex(access)));
    if (calls.openInstead) {
        return calls.openInstead(opened);
    }
    return fails ? static_cast<LSTATUS>(GetLastError())
                 : calls.openKey_.Original<decltype(RegOpenKeyExW)>()(parent, path, options, access, opened);
}

LSTATUS WINAPI LaunchCalls::OnCloseKey(HKEY key) {
    current_->Enter("RegCloseKey", NameOf(key));
    return current_->closeKey_.Original<decltype(RegCloseKey)>()(key);
}

LSTATUS WINAPI LaunchCalls::OnSetValue(HKEY parent, const wchar_t* path, const wchar_t* name, DWORD type,
                                       const void* data, DWORD size) {
    const bool fails =
        current_->Enter("RegSetKeyValueW", Text(NameOf(parent), ", ", Narrow(path), ", ", Narrow(name),
                                                ", type ", type, ", ", HexBytes(data, size)));
    return fails ? static_cast<LSTATUS>(GetLastError())
                 : current_->setValue_.Original<decltype(RegSetKeyValueW)>()(parent, path, name, type, data,
                                                                             size);
}

BOOL WINAPI LaunchCalls::OnOpenToken(HANDLE process, DWORD access, HANDLE* token) {
    if (current_->Enter("OpenProcessToken", Text(NameOf(process), ", 0x", Hex(access)))) {
        return FALSE;
    }
    *token = kOwnToken;
    return TRUE;
}

BOOL WINAPI LaunchCalls::OnDuplicate(HANDLE token, DWORD access, SECURITY_ATTRIBUTES* attributes,
                                     SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type, HANDLE* duplicate) {
    if (current_->Enter("DuplicateTokenEx",
                        Text(NameOf(token), ", 0x", Hex(access), ", ", NullOrNot(attributes), ", level ",
                             static_cast<int>(level), ", type ", static_cast<int>(type)))) {
        return FALSE;
    }
    *duplicate = kDuplicate;
    return TRUE;
}

BOOL WINAPI LaunchCalls::OnConvertSid(const wchar_t* text, PSID* sid) {
    return current_->Enter("ConvertStringSidToSidW", Narrow(text))
               ? FALSE
               : current_->convertSid_.Original<decltype(ConvertStringSidToSidW)>()(text, sid);
}

BOOL WINAPI LaunchCalls::OnSetInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass,
                                          void* information, DWORD length) {
    const auto& label = static_cast<const TOKEN_MANDATORY_LABEL*>(information)->Label;
    return current_->Enter("SetTokenInformation",
                           Text(NameOf(token), ", class ", static_cast<int>(informationClass), ", ",
                                HexBytes(label.Sid, GetLengthSid(label.Sid)), ", attributes 0x",
                                Hex(label.Attributes), ", ", length, " bytes"))
               ? FALSE
               : TRUE;
}

UINT WINAPI LaunchCalls::OnSystemDirectory(wchar_t* buffer, UINT size) {
    current_->Enter("GetSystemDirectoryW", Text(buffer == nullptr ? "no buffer, " : "", size, " characters"));
    return current_->systemDirectory_.Original<decltype(GetSystemDirectoryW)>()(buffer, size);
}

BOOL WINAPI LaunchCalls::OnStart(HANDLE token, const wchar_t* application, wchar_t* commandLine,
                                 SECURITY_ATTRIBUTES* processAttributes,
                                 SECURITY_ATTRIBUTES* threadAttributes, BOOL inheritHandles, DWORD flags,
                                 void* environment, const wchar_t* currentDirectory, STARTUPINFOW* startup,
                                 PROCESS_INFORMATION* process) {
    LaunchCalls& calls = *current_;
    calls.startup_ = *startup;
    if (calls.Enter("CreateProcessAsUserW",
                    Text(NameOf(token), ", ", Narrow(application), ", ", Narrow(commandLine), ", ",
                         NullOrNot(processAttributes), ", ", NullOrNot(threadAttributes), ", inherit ",
                         inheritHandles, ", flags ", flags, ", ", NullOrNot(environment), ", ",
                         NullOrNot(currentDirectory)))) {
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
    current_->Enter("WaitForSingleObject", Text(NameOf(handle), ", 0x", Hex(timeout)));
    return current_->waitResult;
}

BOOL WINAPI LaunchCalls::OnCloseHandle(HANDLE handle) {
    const std::string name = NameOf(handle);
    if (name == "another handle") {
        return current_->closeHandle_.Original<decltype(CloseHandle)>()(handle);
    }
    current_->Enter("CloseHandle", name);
    return handle != nullptr ? TRUE : FALSE;
}
