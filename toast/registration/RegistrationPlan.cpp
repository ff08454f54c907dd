#include "toast/registration/RegistrationPlan.h"

namespace toast {
namespace {

using Plan = std::vector<RegistryValue>;

constexpr wchar_t kName[] = L"Veyra camera toast controller";
constexpr wchar_t kClassKey[] = L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}";

constexpr wchar_t kApplicationId[] = L"{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}";
constexpr wchar_t kApplicationKey[] = L"SOFTWARE\\Classes\\AppID\\{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}";
// Leads COM in the server's own process to its access permission.
constexpr wchar_t kProgramKey[] = L"SOFTWARE\\Classes\\AppID\\VeyraCameraToastCntl.exe";

constexpr wchar_t kLibraryId[] = L"{84F13EE2-392B-49D6-A2F4-D921A5746B0D}";
constexpr wchar_t kLibraryVersion[] = L"1.0";
constexpr wchar_t kLibraryKey[] = L"SOFTWARE\\Classes\\TypeLib\\{84F13EE2-392B-49D6-A2F4-D921A5746B0D}";

constexpr wchar_t kInterfaceKey[] = L"SOFTWARE\\Classes\\Interface\\{45E679A1-AE15-45DC-854E-13D90FD864C5}";
constexpr wchar_t kEventsKey[] = L"SOFTWARE\\Classes\\Interface\\{BAE9D3F9-D047-4A89-B5AD-862D8A2B29D0}";
// Windows' marshallers for a dual interface and for a dispatch interface: both go by the type library.
constexpr wchar_t kInterfaceMarshaller[] = L"{00020424-0000-0000-C000-000000000046}";
constexpr wchar_t kDispatchMarshaller[] = L"{00020420-0000-0000-C000-000000000046}";

constexpr wchar_t kEventSourceKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\VeyraCameraToastCntl";

// Owner and group are the administrators, without whom COM takes no descriptor. LocalSystem, LocalService,
// the interactive user and the administrators may launch and activate the server from this machine, and call
// it.
constexpr wchar_t kLaunchPermission[] =
    L"O:BAG:BAD:(A;;CCDCSW;;;SY)(A;;CCDCSW;;;LS)(A;;CCDCSW;;;IU)(A;;CCDCSW;;;BA)";
constexpr wchar_t kAccessPermission[] = L"O:BAG:BAD:(A;;CCDC;;;SY)(A;;CCDC;;;LS)(A;;CCDC;;;IU)(A;;CCDC;;;BA)";

std::wstring Below(const wchar_t* key, const wchar_t* rest) {
    return std::wstring(key) + L"\\" + rest;
}

Plan EventSource(const std::wstring& path) {
    constexpr DWORD kTypes = EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;
    return {
        TextValue(kEventSourceKey, L"EventMessageFile", path),
        NumberValue(kEventSourceKey, L"TypesSupported", kTypes),
    };
}

Plan TypeLibrary(const std::wstring& path) {
    const std::wstring version = Below(kLibraryKey, kLibraryVersion);
    return {
        TextValue(version, L"", kName),
        TextValue(version + L"\\0\\win64", L"", path),
        TextValue(version + L"\\FLAGS", L"", L"0"),
    };
}

Plan Interface(const wchar_t* key, const wchar_t* name, const wchar_t* marshaller) {
    return {
        TextValue(key, L"", name),
        TextValue(Below(key, L"ProxyStubClsid32"), L"", marshaller),
        TextValue(Below(key, L"TypeLib"), L"", kLibraryId),
        TextValue(Below(key, L"TypeLib"), L"Version", kLibraryVersion),
    };
}

// What a service needs to start the server where the logged-on user sees it.
Plan Application() {
    return {
        TextValue(kApplicationKey, L"", kName),
        TextValue(kApplicationKey, L"RunAs", L"Interactive User"),
        PermissionValue(kApplicationKey, L"LaunchPermission", kLaunchPermission),
        PermissionValue(kApplicationKey, L"AccessPermission", kAccessPermission),
        TextValue(kProgramKey, L"AppID", kApplicationId),
    };
}

Plan Class(const std::wstring& path) {
    return {
        TextValue(kServerKey, L"", L"\"" + path + L"\""),
        TextValue(kServerKey, kServerExecutable, path),
        TextValue(Below(kClassKey, L"TypeLib"), L"", kLibraryId),
        TextValue(Below(kClassKey, L"Version"), L"", kLibraryVersion),
        TextValue(kClassKey, L"AppID", kApplicationId),
        TextValue(kClassKey, L"", kName),
    };
}

}  // namespace

std::vector<RegistryValue> RegistrationPlan(const std::wstring& programPath) {
    Plan whole;
    for (const Plan& part : {EventSource(programPath), TypeLibrary(programPath),
                             Interface(kInterfaceKey, L"IToastCntr", kInterfaceMarshaller),
                             Interface(kEventsKey, L"IToastCntrEvents", kDispatchMarshaller), Application(),
                             Class(programPath)}) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

std::vector<std::wstring> RegistrationKeys() {
    return {kClassKey, kProgramKey, kApplicationKey, kEventsKey, kInterfaceKey, kLibraryKey, kEventSourceKey};
}

}  // namespace toast
