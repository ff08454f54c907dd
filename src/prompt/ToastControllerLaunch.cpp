#include "prompt/ToastControllerLaunch.h"

#include "diagnostics/TraceMessageGroups.h"
#include "diagnostics/TraceProvider.h"
#include "prompt/IToastCntr.h"
#include "win32/HResultFromWin32.h"
#include "win32/SystemDirectory.h"

#include <sddl.h>

#include <array>
#include <string>

namespace {

constexpr const wchar_t* kClassesKey = L"SOFTWARE\\Classes\\CLSID\\";
constexpr const wchar_t* kExecutable = L"\\VeyraCameraToastCntl.exe";
constexpr const wchar_t* kMediumIntegritySid = L"S-1-16-8192";
constexpr const wchar_t* kNotificationSettingsKey =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Notifications\\Settings\\";
constexpr const wchar_t* kAppUserModelId = L"Morrow.Veyra.DFUToastCntl";
constexpr const wchar_t* kShowInActionCenter = L"ShowInActionCenter";

constexpr int kClassTextCapacity = 40;
constexpr DWORD kOwnTokenAccess = TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_ADJUST_DEFAULT;
static_assert(kOwnTokenAccess == 0x8B);
constexpr DWORD kDuplicateAccess = 0xF00FF;
constexpr DWORD kLabelSize = 16;
static_assert(sizeof(TOKEN_MANDATORY_LABEL) == kLabelSize);

constexpr USHORT kStartFailed = 10;

// Whether the class key can be opened for reading. Only the handle decides, and it stays open.
bool ClassIsRegistered() {
    std::array<wchar_t, kClassTextCapacity> classText{};
    StringFromGUID2(kClsidToastController, classText.data(), kClassTextCapacity);
    const std::wstring path = std::wstring(kClassesKey) + classText.data();
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key);
    return key != nullptr;
}

// A primary duplicate of the process's own token. False with the last error set when there is none.
bool DuplicateOwnToken(HANDLE& duplicate) {
    HANDLE token = nullptr;
    return OpenProcessToken(GetCurrentProcess(), kOwnTokenAccess, &token) != FALSE &&
           DuplicateTokenEx(token, kDuplicateAccess, nullptr, SecurityImpersonation, TokenPrimary,
                            &duplicate) != FALSE;
}

void LowerToMediumIntegrity(HANDLE token) {
    PSID sid = nullptr;
    ConvertStringSidToSidW(kMediumIntegritySid, &sid);
    if (sid == nullptr) {
        return;
    }
    TOKEN_MANDATORY_LABEL label{};
    label.Label.Sid = sid;
    label.Label.Attributes = SE_GROUP_INTEGRITY;
    SetTokenInformation(token, TokenIntegrityLevel, &label, GetLengthSid(sid) + kLabelSize);
}

// Starts the controller to register itself and waits for its end.
HRESULT RunRegistration(HANDLE token) {
    const std::wstring path = win32::SystemDirectory() + kExecutable;
    // The executable is named apart, so that "/RegServer" is the first word that the program sees.
    std::wstring commandLine = L"/RegServer";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (CreateProcessAsUserW(token, path.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                             nullptr, &startup, &process)) {
        const DWORD waited = WaitForSingleObject(process.hProcess, INFINITE);
        const HRESULT status = win32::HResultFromWin32(static_cast<LONG>(waited));
        if (FAILED(status)) {
            return status;
        }
    } else {
        // Carries on, closing handles that are null: deliberate.
        TraceProvider::EmitCode(TraceLevel::Error, kToastControllerLaunchTraces, kStartFailed,
                                GetLastError());
    }
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return S_OK;
}

HRESULT KeepNotificationsInActionCenter() {
    const std::wstring path = std::wstring(kNotificationSettingsKey) + kAppUserModelId;
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &key);
    const DWORD show = 1;
    return win32::HResultFromWin32(
        RegSetKeyValueW(HKEY_CURRENT_USER, path.c_str(), kShowInActionCenter, REG_DWORD, &show, sizeof show));
}

}  // namespace

HRESULT EnsureToastControllerRegistered() {
    if (!ClassIsRegistered()) {
        HANDLE token = nullptr;
        if (!DuplicateOwnToken(token)) {
            return win32::HResultFromLastError();
        }
        LowerToMediumIntegrity(token);
        const HRESULT status = RunRegistration(token);
        if (FAILED(status)) {
            return status;
        }
    }
    return KeepNotificationsInActionCenter();
}
