#include "prompt/CNotifyClient.h"
#include "prompt/CSink.h"
#include "prompt/ToastController.h"
#include "tests/support/Patience.h"
#include "win32/UniqueHandle.h"

#include <gtest/gtest.h>

#include <tlhelp32.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

const wchar_t* const kServerKey =
    L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}\\LocalServer32";
using test_support::kPatienceMs;
const wchar_t* const kToDieEvent = L"VeyraOddToastControllerDies";

std::wstring WindowsPath(const std::string& path) {
    std::wstring file = L"Z:" + std::wstring(path.begin(), path.end());
    std::replace(file.begin(), file.end(), L'/', L'\\');
    return file;
}

// Runs the stand-in controller, which registers the type library that IToastCntr is marshalled by.
void RunStandIn(const wchar_t* option) {
    const std::wstring program = WindowsPath(VEYRA_TOAST_CONTROLLER);
    std::wstring commandLine = L"\"" + program + L"\" " + option;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &started)) {
        throw std::runtime_error("the stand-in does not start");
    }
    const win32::UniqueKernelHandle process(started.hProcess);
    const win32::UniqueKernelHandle thread(started.hThread);
    WaitForSingleObject(process.Get(), kPatienceMs);
}

win32::UniqueKernelHandle OddServerProcess() {
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    const HANDLE processes = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    DWORD found = 0;
    for (BOOL more = Process32FirstW(processes, &entry); more; more = Process32NextW(processes, &entry)) {
        if (lstrcmpiW(entry.szExeFile, L"odd_toast_controller.exe") == 0) {
            found = entry.th32ProcessID;
        }
    }
    CloseHandle(processes);
    return win32::UniqueKernelHandle(
        found == 0 ? nullptr : OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, found));
}

// A machine whose toast controller is a real local server, of which each test says what it is.
class OddToastController : public testing::Test {
  protected:
    OddToastController() {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        RunStandIn(L"/RegServer");
    }
    ~OddToastController() override {
        server_.reset();
        CoUninitialize();
        EXPECT_EQ(ExitCode(), std::nullopt) << "the server was not let go";
        RunStandIn(L"/UnregServer");
    }

    static void Register(const std::wstring& commandLine) {
        const auto size = static_cast<DWORD>((commandLine.size() + 1) * sizeof(wchar_t));
        ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kServerKey, nullptr, REG_SZ, commandLine.c_str(), size),
                  ERROR_SUCCESS);
    }
    static void RegisterOddServer(const std::wstring& oddity) {
        Register(L"\"" + WindowsPath(VEYRA_ODD_TOAST_CONTROLLER) + L"\" " + oddity);
    }

    // What the server's process, if there is one, ends with in time; nothing when there is none.
    static std::optional<DWORD> ExitCode() {
        const win32::UniqueKernelHandle process = OddServerProcess();
        if (!process || WaitForSingleObject(process.Get(), 0) == WAIT_OBJECT_0) {
            return std::nullopt;
        }
        DWORD code = STILL_ACTIVE;
        EXPECT_EQ(WaitForSingleObject(process.Get(), kPatienceMs), WAIT_OBJECT_0);
        GetExitCodeProcess(process.Get(), &code);
        return code == 0 ? std::nullopt : std::optional(code);
    }

    std::shared_ptr<IToastCntrPtr> server_ = std::make_shared<IToastCntrPtr>();
};

TEST_F(OddToastController, ThatIsNotRegisteredGivesTheErrorOfTheMissingClass) {
    RunStandIn(L"/UnregServer");
    EXPECT_EQ(CreateToastController(*server_), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(server_->GetInterfacePtr(), nullptr);
}

TEST_F(OddToastController, WhoseFileIsMissingGivesAnError) {
    Register(L"\"C:\\there is no such\\server.exe\"");
    EXPECT_LT(CreateToastController(*server_), 0);
    EXPECT_EQ(server_->GetInterfacePtr(), nullptr);
}

TEST_F(OddToastController, WithoutTheInterfaceIsRefusedAndLetGo) {
    RegisterOddServer(L"without-interface");
    EXPECT_EQ(CreateToastController(*server_), E_NOINTERFACE);
    EXPECT_EQ(server_->GetInterfacePtr(), nullptr);
}

TEST_F(OddToastController, WithoutEventsEndsTheSetUpWithAnError) {
    RegisterOddServer(L"without-events");
    ASSERT_EQ(CreateToastController(*server_), S_OK);
    CSink sink([] {});
    try {
        sink.Advise(server_);
        ADD_FAILURE() << "the sink was connected to nothing";
    } catch (const _com_error& error) {
        EXPECT_EQ(error.Error(), E_POINTER);
    }
}

TEST_F(OddToastController, WithoutEventsStillTakesCalls) {
    RegisterOddServer(L"without-events");
    ASSERT_EQ(CreateToastController(*server_), S_OK);
    const CNotifyClient client(server_);
    EXPECT_TRUE(client.ShowUpdatePrompt(L"5.10.2.0", L"5.10.3.0"));
    EXPECT_TRUE(client.NotifyStart(1024));
    EXPECT_TRUE(client.NotifyProgress(L"1"));
}

TEST_F(OddToastController, ThatDiesBetweenTwoCallsFailsTheSecondAndRaisesNothing) {
    RegisterOddServer(L"dies");
    ASSERT_EQ(CreateToastController(*server_), S_OK);
    const CNotifyClient client(server_);
    const win32::UniqueKernelHandle process = OddServerProcess();
    ASSERT_TRUE(process);
    EXPECT_TRUE(client.ShowUpdatePrompt(L"5.10.2.0", L"5.10.3.0"));
    const win32::UniqueKernelHandle isToDie(OpenEventW(EVENT_MODIFY_STATE, FALSE, kToDieEvent));
    ASSERT_TRUE(SetEvent(isToDie.Get()));
    ASSERT_EQ(WaitForSingleObject(process.Get(), kPatienceMs), WAIT_OBJECT_0);
    DWORD code = 0;
    GetExitCodeProcess(process.Get(), &code);
    EXPECT_EQ(code, 3U);
    EXPECT_FALSE(client.NotifyProgress(L"1"));
    EXPECT_FALSE(client.NotifyStart(1024));
    EXPECT_LT((*server_)->NotifyComplete(), 0);
}

}  // namespace
