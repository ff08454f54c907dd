#include <gtest/gtest.h>

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>
#include <tlhelp32.h>
#include <wrl/client.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "prompt/IToastCntr.h"
#include "win32/UniqueHandle.h"

// The program itself, registered in the machine's registry and started by COM. There need not be a screen.
namespace {

using Microsoft::WRL::ComPtr;
using win32::UniqueKernelHandle;

constexpr DWORD kPatienceMs = 30'000;
constexpr wchar_t kClassKey[] = L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}";

std::wstring WindowsPath(const std::string& path) {
    std::wstring file = L"Z:" + std::wstring(path.begin(), path.end());
    std::replace(file.begin(), file.end(), L'/', L'\\');
    return file;
}

UniqueKernelHandle Start(const std::string& path, std::wstring commandLine) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(WindowsPath(path).c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                        nullptr, &startup, &process)) {
        throw std::runtime_error("the program does not start");
    }
    CloseHandle(process.hThread);
    return UniqueKernelHandle(process.hProcess);
}

DWORD EndOf(const UniqueKernelHandle& process) {
    DWORD code = STILL_ACTIVE;
    WaitForSingleObject(process.Get(), kPatienceMs);
    GetExitCodeProcess(process.Get(), &code);
    return code;
}

DWORD RunController(const wchar_t* commandLine) {
    return EndOf(Start(VEYRA_TOAST_CONTROLLER, commandLine));
}

// The process that serves; empty when there is none, and a failure when there are several.
UniqueKernelHandle Server() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    UniqueKernelHandle found;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        if (lstrcmpiW(entry.szExeFile, L"VeyraCameraToastCntl.exe") == 0) {
            EXPECT_FALSE(found);
            found.Reset(OpenProcess(PROCESS_ALL_ACCESS, FALSE, entry.th32ProcessID));
        }
    }
    CloseHandle(snapshot);
    return found;
}

DWORD HandlesOf(const UniqueKernelHandle& process) {
    DWORD count = 0;
    EXPECT_TRUE(GetProcessHandleCount(process.Get(), &count));
    return count;
}

class ToastProgram : public testing::Test {
  protected:
    static void SetUpTestSuite() { EXPECT_EQ(RunController(L"/RegServer"), 0u); }
    static void TearDownTestSuite() { EXPECT_EQ(RunController(L"/UnregServer"), 0u); }

    ToastProgram() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    ~ToastProgram() override {
        CoUninitialize();
        const UniqueKernelHandle server = Server();
        if (server) {
            EXPECT_EQ(EndOf(server), 0u);
        }
    }

    [[nodiscard]] static ComPtr<IToastCntr> Activate() {
        ComPtr<IToastCntr> controller;
        EXPECT_EQ(CoCreateInstance(kClsidToastController, nullptr, CLSCTX_LOCAL_SERVER, kIidToastCntr,
                                   reinterpret_cast<void**>(controller.GetAddressOf())),
                  S_OK);
        return controller;
    }
};

TEST_F(ToastProgram, TellsItsUsageByItsExitCode) {
    EXPECT_EQ(RunController(L"VeyraCameraToastCntl.exe"), 2u);
    EXPECT_EQ(RunController(L"VeyraCameraToastCntl.exe /Help"), 2u);
}

TEST_F(ToastProgram, IsRegisteredAndRemovedAgainAndAgain) {
    EXPECT_EQ(RunController(L"/RegServer"), 0u);
    EXPECT_EQ(RunController(L"/UnregServer"), 0u);
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, kClassKey, 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RunController(L"/UnregServer"), 0u);
    EXPECT_EQ(RunController(L"/RegServer"), 0u);
}

TEST_F(ToastProgram, LeavesOtherProgramsRegistrationAlone) {
    const wchar_t other[] = L"C:\\windows\\system32\\cmd.exe";
    ASSERT_EQ(RunController(L"/UnregServer"), 0u);
    const std::wstring serverKey = std::wstring(kClassKey) + L"\\LocalServer32";
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, serverKey.c_str(), L"ServerExecutable", REG_SZ, other,
                              sizeof other),
              ERROR_SUCCESS);
    EXPECT_EQ(RunController(L"/RegServer"), 4u);
    EXPECT_EQ(RunController(L"/UnregServer"), 4u);
    EXPECT_EQ(RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey), ERROR_SUCCESS);
    EXPECT_EQ(RunController(L"/RegServer"), 0u);
}

TEST_F(ToastProgram, ServesThroughItsTypeLibraryAndLeavesAfterTheLastClient) {
    ComPtr<IToastCntr> controller = Activate();
    ASSERT_NE(controller, nullptr);
    const UniqueKernelHandle server = Server();
    ASSERT_TRUE(server);
    wchar_t name[] = L"NotifyProgress";
    LPOLESTR names = name;
    DISPID id = 0;
    EXPECT_EQ(controller->GetIDsOfNames(GUID{}, &names, 1, 0, &id), S_OK);
    EXPECT_EQ(id, 2);
    // A text that means nothing: nothing is shown that would keep the process.
    VARIANTARG argument;
    V_VT(&argument) = VT_BSTR;
    V_BSTR(&argument) = SysAllocString(L"hello");
    DISPPARAMS parameters{&argument, nullptr, 1, 0};
    EXPECT_EQ(controller->Invoke(id, GUID{}, 0, DISPATCH_METHOD, &parameters, nullptr, nullptr, nullptr),
              S_OK);
    VariantClear(&argument);
    EXPECT_EQ(WaitForSingleObject(server.Get(), 3000), static_cast<DWORD>(WAIT_TIMEOUT));
    controller.Reset();
    EXPECT_EQ(EndOf(server), 0u);
}

TEST_F(ToastProgram, IsOneProcessForASession) {
    const ComPtr<IToastCntr> controller = Activate();
    const UniqueKernelHandle server = Server();
    EXPECT_EQ(RunController(L"VeyraCameraToastCntl.exe -Embedding"), 5u);
    EXPECT_EQ(WaitForSingleObject(server.Get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST_F(ToastProgram, KeepsNothingOfTwoHundredClients) {
    const ComPtr<IToastCntr> controller = Activate();
    const UniqueKernelHandle server = Server();
    DWORD afterTheFirst = 0;
    for (int client = 0; client < 200; ++client) {
        EXPECT_EQ(Activate()->NotifyProgress(nullptr), S_OK);
        if (client == 20) {
            afterTheFirst = HandlesOf(server);
        }
    }
    EXPECT_LE(HandlesOf(server), afterTheFirst + 5);
}

TEST_F(ToastProgram, LeavesAfterAClientThatWasKilled) {
    const UniqueKernelHandle ready(CreateEventA(nullptr, TRUE, FALSE, "VeyraToastClientReady"));
    const UniqueKernelHandle client = Start(VEYRA_TOAST_CLIENT, L"client VeyraToastClientReady");
    ASSERT_EQ(WaitForSingleObject(ready.Get(), kPatienceMs), WAIT_OBJECT_0);
    const UniqueKernelHandle server = Server();
    ASSERT_TRUE(server);
    TerminateProcess(client.Get(), 9);
    EXPECT_EQ(EndOf(server), 0u);
}

}  // namespace
