#include "lab/toast/ServerRegistration.h"

#include <sddl.h>

#include <string>

#include "lab/toast/ProgramPath.h"
#include "lab/toast/ToastTypeLibrary.h"

namespace lab::toast {
namespace {

constexpr wchar_t kClassKey[] = L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}";
constexpr wchar_t kServerKey[] =
    L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}\\LocalServer32";
constexpr wchar_t kTypeLibraryKey[] =
    L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}\\TypeLib";

constexpr wchar_t kApplicationId[] = L"{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}";
constexpr wchar_t kApplicationKey[] = L"SOFTWARE\\Classes\\AppID\\{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}";
// Leads COM in the server's own process to its access permission.
constexpr wchar_t kProgramKey[] = L"SOFTWARE\\Classes\\AppID\\VeyraCameraToastCntl.exe";

// Owner and group are the administrators, without whom COM takes no descriptor. LocalSystem, LocalService,
// the interactive user and the administrators may launch and activate the server from this machine, and call
// it.
constexpr wchar_t kLaunchPermission[] =
    L"O:BAG:BAD:(A;;CCDCSW;;;SY)(A;;CCDCSW;;;LS)(A;;CCDCSW;;;IU)(A;;CCDCSW;;;BA)";
constexpr wchar_t kAccessPermission[] = L"O:BAG:BAD:(A;;CCDC;;;SY)(A;;CCDC;;;LS)(A;;CCDC;;;IU)(A;;CCDC;;;BA)";

HRESULT WriteText(const wchar_t* key, const wchar_t* name, const std::wstring& text) {
    const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    return HRESULT_FROM_WIN32(
        static_cast<DWORD>(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, REG_SZ, text.c_str(), size)));
}

HRESULT WritePermission(const wchar_t* name, const wchar_t* permission) {
    void* descriptor = nullptr;
    ULONG size = 0;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(permission, SDDL_REVISION_1, &descriptor,
                                                              &size)) {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    const LSTATUS status =
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, kApplicationKey, name, REG_BINARY, descriptor, size);
    LocalFree(descriptor);
    return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
}

// What a service needs to start the server where the logged-on user sees it.
HRESULT WriteApplication() {
    HRESULT result = WriteText(kApplicationKey, nullptr, L"Veyra camera toast controller");
    if (SUCCEEDED(result)) {
        result = WriteText(kApplicationKey, L"RunAs", L"Interactive User");
    }
    if (SUCCEEDED(result)) {
        result = WritePermission(L"LaunchPermission", kLaunchPermission);
    }
    if (SUCCEEDED(result)) {
        result = WritePermission(L"AccessPermission", kAccessPermission);
    }
    if (SUCCEEDED(result)) {
        result = WriteText(kProgramKey, L"AppID", kApplicationId);
    }
    return result;
}

HRESULT WriteClass(const std::wstring& path) {
    HRESULT result = WriteText(kServerKey, nullptr, L"\"" + path + L"\"");
    if (SUCCEEDED(result)) {
        result = WriteText(kServerKey, L"ServerExecutable", path);
    }
    if (SUCCEEDED(result)) {
        result = WriteText(kTypeLibraryKey, nullptr, L"{84F13EE2-392B-49D6-A2F4-D921A5746B0D}");
    }
    if (SUCCEEDED(result)) {
        result = WriteText(kClassKey, L"AppID", kApplicationId);
    }
    if (SUCCEEDED(result)) {
        result = WriteText(kClassKey, nullptr, L"Veyra camera toast controller");
    }
    return result;
}

HRESULT DeleteKey(const wchar_t* key) {
    const LSTATUS status = RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
    return status == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(static_cast<DWORD>(status));
}

}  // namespace

HRESULT RegisterServer() {
    HRESULT result = RegisterToastTypeLibrary();
    if (SUCCEEDED(result)) {
        result = WriteApplication();
    }
    if (SUCCEEDED(result)) {
        result = WriteClass(ProgramPath());
    }
    if (FAILED(result)) {
        static_cast<void>(UnregisterServer());
    }
    return result;
}

HRESULT UnregisterServer() {
    HRESULT first = S_OK;
    for (const HRESULT result : {DeleteKey(kClassKey), DeleteKey(kProgramKey), DeleteKey(kApplicationKey),
                                 UnregisterToastTypeLibrary()}) {
        first = FAILED(first) ? first : result;
    }
    return first;
}

}  // namespace lab::toast
