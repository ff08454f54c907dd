#include "toast/program/ToastControllerRun.h"

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

TEST(ToastControllerRun, FailsWithoutCom) {
    const ImportRedirect initialise("CoInitializeEx", &NoApartment);
    EXPECT_EQ(RunToastController(), ServerResult::kFailed);
}

HRESULT WINAPI NoLibrary(LPCOLESTR, REGKIND, ITypeLib** library) {
    *library = nullptr;
    return TYPE_E_CANTLOADLIBRARY;
}

TEST(ToastControllerRun, FailsWithoutItsTypeLibrary) {
    const ImportRedirect load("LoadTypeLibEx", &NoLibrary);
    EXPECT_EQ(RunToastController(), ServerResult::kFailed);
}

HWND WINAPI NoWindow(DWORD, LPCWSTR, LPCWSTR, DWORD, int, int, int, int, HWND, HMENU, HINSTANCE, LPVOID) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

TEST(ToastControllerRun, FailsWithoutWindows) {
    const ImportRedirect window("CreateWindowExW", &NoWindow);
    EXPECT_EQ(RunToastController(), ServerResult::kFailed);
}

HRESULT WINAPI NoClass(REFCLSID, LPUNKNOWN, DWORD, DWORD, LPDWORD) {
    return CO_E_OBJISREG;
}

TEST(ToastControllerRun, FailsWhenItsClassIsNotTaken) {
    const ImportRedirect offer("CoRegisterClassObject", &NoClass);
    EXPECT_EQ(RunToastController(), ServerResult::kFailed);
}

}  // namespace
}  // namespace toast
