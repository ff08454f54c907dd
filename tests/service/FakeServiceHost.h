#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

// Stands in for everything around the frame of a service: the service control manager that it registers with
// and reports to, the device notifications, the event log, the debug output, and, for its uninstall monitor,
// the registry's sensor cameras and the command interpreter. Every call is kept as one line with all its
// arguments.
class FakeServiceHost : public test_support::OnlyOne<FakeServiceHost> {
  public:
    FakeServiceHost();

    // Failures: the last error that the call leaves, 0 for success.
    DWORD registerHandlerError = ERROR_SUCCESS;
    DWORD registerNotificationError = ERROR_SUCCESS;
    DWORD registerEventSourceError = ERROR_SUCCESS;
    bool classTextFails = false;

    // Whether the registry holds a camera of the family, which is what the uninstall monitor looks for.
    bool hasCamera = false;

    // Runs at the end of each debug output, with its text.
    std::function<void(const std::wstring&)> onDebugText;

    void Record(const std::string& line);
    // All lines so far but those of the uninstall monitor's commands, which come from threads of its own.
    [[nodiscard]] std::vector<std::string> Lines() const;
    // The commands so far, sorted.
    [[nodiscard]] std::vector<std::string> Commands() const;
    void Forget();

    // Reports of later check-points are shown relative to this one, "#1" being the first after it.
    void SetCheckPointBase(DWORD checkPoint) { checkPointBase_ = checkPoint; }
    // The last status that was reported.
    [[nodiscard]] const SERVICE_STATUS& LastStatus() const { return lastStatus_; }

    // The arguments of the last RegisterServiceCtrlHandlerExW.
    LPHANDLER_FUNCTION_EX handler = nullptr;
    void* handlerContext = nullptr;

  private:
    static SERVICE_STATUS_HANDLE WINAPI OnRegisterHandler(const wchar_t* name, LPHANDLER_FUNCTION_EX handler,
                                                          void* context);
    static void* WINAPI OnRegisterNotification(HANDLE recipient, void* filter, DWORD flags);
    static BOOL WINAPI OnSetServiceStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status);
    static HANDLE WINAPI OnRegisterEventSource(const wchar_t* server, const wchar_t* source);
    static BOOL WINAPI OnReportEvent(HANDLE log, WORD type, WORD category, DWORD id, void* user,
                                     WORD stringCount, DWORD dataSize, const wchar_t** strings, void* data);
    static BOOL WINAPI OnDeregisterEventSource(HANDLE log);
    static void WINAPI OnOutputDebugString(const wchar_t* text);
    static HRESULT WINAPI OnStringFromClsid(const GUID& id, wchar_t** text);
    static void WINAPI OnCoTaskMemFree(void* memory);
    static LSTATUS WINAPI OnOpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access,
                                    HKEY* key);
    static LSTATUS WINAPI OnQueryInfoKey(HKEY key, wchar_t* className, DWORD* classNameLength,
                                         DWORD* reserved, DWORD* subkeys, DWORD*, DWORD*, DWORD*, DWORD*,
                                         DWORD*, DWORD*, FILETIME*);
    static LSTATUS WINAPI OnEnumKey(HKEY key, DWORD index, wchar_t* name, DWORD* nameLength, DWORD*, wchar_t*,
                                    DWORD*, FILETIME*);
    static LSTATUS WINAPI OnGetValue(HKEY key, const wchar_t* subkey, const wchar_t* value, DWORD flags,
                                     DWORD* type, void* data, DWORD* size);
    static int __cdecl OnSystem(const char* command);

    [[nodiscard]] std::string CheckPointText(DWORD checkPoint) const;

    mutable std::mutex lock_;
    std::vector<std::string> lines_;
    std::vector<std::string> commands_;
    DWORD checkPointBase_ = 0;
    SERVICE_STATUS lastStatus_{};
    void* classText_ = nullptr;

    test_support::ImportRedirect registerHandler_;
    test_support::ImportRedirect registerNotification_;
    test_support::ImportRedirect setServiceStatus_;
    test_support::ImportRedirect registerEventSource_;
    test_support::ImportRedirect reportEvent_;
    test_support::ImportRedirect deregisterEventSource_;
    test_support::ImportRedirect outputDebugString_;
    test_support::ImportRedirect stringFromClsid_;
    test_support::ImportRedirect coTaskMemFree_;
    test_support::ImportRedirect openKey_;
    test_support::ImportRedirect queryInfoKey_;
    test_support::ImportRedirect enumKey_;
    test_support::ImportRedirect getValue_;
    test_support::ImportRedirect system_;
};
