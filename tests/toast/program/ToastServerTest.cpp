#include "toast/program/ToastServer.h"

#include <gtest/gtest.h>
#include <objbase.h>
#include <oleauto.h>

#include "tests/support/ImportRedirect.h"

namespace toast {
namespace {

using test_support::ImportRedirect;

HRESULT WINAPI NoApartment(LPVOID, DWORD) {
    return E_OUTOFMEMORY;
}

TEST(ToastServer, FailsWithoutCom) {
    const ImportRedirect initialise("CoInitializeEx", &NoApartment);
    EXPECT_EQ(RunToastServer(), ServerResult::kFailed);
}

HRESULT WINAPI NoLibrary(LPCOLESTR, REGKIND, ITypeLib** library) {
    *library = nullptr;
    return TYPE_E_CANTLOADLIBRARY;
}

TEST(ToastServer, FailsWithoutItsTypeLibrary) {
    const ImportRedirect load("LoadTypeLibEx", &NoLibrary);
    EXPECT_EQ(RunToastServer(), ServerResult::kFailed);
}

HWND WINAPI NoWindow(DWORD, LPCWSTR, LPCWSTR, DWORD, int, int, int, int, HWND, HMENU, HINSTANCE, LPVOID) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

TEST(ToastServer, FailsWithoutWindows) {
    const ImportRedirect window("CreateWindowExW", &NoWindow);
    EXPECT_EQ(RunToastServer(), ServerResult::kFailed);
}

HRESULT WINAPI NoClass(REFCLSID, LPUNKNOWN, DWORD, DWORD, LPDWORD) {
    return CO_E_OBJISREG;
}

TEST(ToastServer, FailsWhenItsClassIsNotTaken) {
    const ImportRedirect offer("CoRegisterClassObject", &NoClass);
    EXPECT_EQ(RunToastServer(), ServerResult::kFailed);
}

}  // namespace
}  // namespace toast
