#include "lab/toast/ServerRegistration.h"

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

HRESULT WriteText(const wchar_t* key, const wchar_t* name, const std::wstring& text) {
    const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    return HRESULT_FROM_WIN32(
        static_cast<DWORD>(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, REG_SZ, text.c_str(), size)));
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
        result = WriteText(kClassKey, nullptr, L"Veyra camera toast controller");
    }
    return result;
}

HRESULT DeleteClass() {
    const LSTATUS status = RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey);
    return status == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(static_cast<DWORD>(status));
}

}  // namespace

HRESULT RegisterServer() {
    HRESULT result = RegisterToastTypeLibrary();
    if (SUCCEEDED(result)) {
        result = WriteClass(ProgramPath());
    }
    if (FAILED(result)) {
        static_cast<void>(UnregisterServer());
    }
    return result;
}

HRESULT UnregisterServer() {
    const HRESULT classResult = DeleteClass();
    const HRESULT libraryResult = UnregisterToastTypeLibrary();
    return FAILED(classResult) ? classResult : libraryResult;
}

}  // namespace lab::toast
