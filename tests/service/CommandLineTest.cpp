#include "service/CommandLine.h"

#include "tests/service/FakeServiceControlManager.h"
#include "win32/Win32Error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

constexpr const char* kUsage =
    "> Parameters:\n -install  to install the service.\n -remove   to remove the service.\n";
constexpr const char* kOpenForRemoval = "OpenSCManagerW(null, null, 0x1)";
constexpr const char* kOpenService = "OpenServiceW(manager, VeyraCameraDfuService, 0x10024)";

class SomeService : public DFUServiceBase {
  public:
    explicit SomeService(const wchar_t* name = L"VeyraCameraDfuService") : DFUServiceBase(name, [] {}) {}

    HRESULT OnUsbDeviceArrival() override { return S_OK; }
    HRESULT OnCameraArrival(const DEV_BROADCAST_DEVICEINTERFACE_W&) override { return S_OK; }
};

class CommandLine : public testing::Test {
  protected:
    ~CommandLine() override { DFUServiceBase::SetInstance(nullptr); }

    void Run(std::vector<std::wstring> arguments) {
        std::vector<wchar_t*> argv;
        for (std::wstring& argument : arguments) {
            argv.push_back(argument.data());
        }
        const int argc = static_cast<int>(argv.size());
        argv.push_back(nullptr);
        manager_.Watch([&] { RunCommandLine(argc, argv.data(), service_); });
    }
    void RunSwitch(const std::wstring& argument) { Run({L"service.exe", argument}); }

    SomeService service_;
    FakeServiceControlManager manager_;
};

// Which command an argument stands for.

struct Argument {
    const char* name;
    std::wstring text;
};

std::string NameOfArgument(const testing::TestParamInfo<Argument>& argument) {
    return argument.param.name;
}

class InstallSwitch : public CommandLine, public testing::WithParamInterface<Argument> {};

TEST_P(InstallSwitch, Installs) {
    RunSwitch(GetParam().text);
    EXPECT_EQ(manager_.Printed(), "VeyraCameraDfuService is installed.\n");
}

INSTANTIATE_TEST_SUITE_P(Forms, InstallSwitch,
                         testing::Values(Argument{"Minus", L"-install"}, Argument{"Slash", L"/install"},
                                         Argument{"UpperCase", L"/INSTALL"}, Argument{"Capital", L"-Install"},
                                         Argument{"MixedCase", L"-iNSTALl"}),
                         NameOfArgument);

class RemoveSwitch : public CommandLine, public testing::WithParamInterface<Argument> {};

TEST_P(RemoveSwitch, Removes) {
    manager_.stopError = ERROR_SERVICE_NOT_ACTIVE;
    RunSwitch(GetParam().text);
    EXPECT_EQ(manager_.Printed(), "VeyraCameraDfuService is removed.\n");
}

INSTANTIATE_TEST_SUITE_P(Forms, RemoveSwitch,
                         testing::Values(Argument{"Minus", L"-remove"}, Argument{"Slash", L"/remove"},
                                         Argument{"UpperCase", L"-REMOVE"}, Argument{"Capital", L"/Remove"}),
                         NameOfArgument);

class UnknownSwitch : public CommandLine, public testing::WithParamInterface<Argument> {};

TEST_P(UnknownSwitch, DoesNothingAndPrintsNothing) {
    RunSwitch(GetParam().text);
    EXPECT_EQ(manager_.Transcript(), Lines{});
    EXPECT_EQ(manager_.Errors(), "");
}

INSTANTIATE_TEST_SUITE_P(Forms, UnknownSwitch,
                         testing::Values(Argument{"OtherWord", L"-foo"}, Argument{"OneLetter", L"-x"},
                                         Argument{"MinusAlone", L"-"}, Argument{"SlashAlone", L"/"},
                                         Argument{"TwoMinuses", L"--install"},
                                         Argument{"Longer", L"-installed"}, Argument{"Shorter", L"-instal"},
                                         Argument{"TrailingBlank", L"-remove "}, Argument{"Question", L"/?"}),
                         NameOfArgument);

class NoSwitch : public CommandLine, public testing::WithParamInterface<Argument> {};

TEST_P(NoSwitch, PrintsTheUsageAndStartsTheDispatcher) {
    RunSwitch(GetParam().text);
    EXPECT_EQ(manager_.Transcript(), (Lines{kUsage, "StartServiceCtrlDispatcherW"}));
}

INSTANTIATE_TEST_SUITE_P(Forms, NoSwitch,
                         testing::Values(Argument{"InstallWithoutMinus", L"install"},
                                         Argument{"RemoveWithoutMinus", L"remove"}, Argument{"Empty", L""},
                                         Argument{"Backslash", L"\\install"},
                                         Argument{"Blank", L" -install"}),
                         NameOfArgument);

TEST_F(CommandLine, LooksAtTheFirstArgumentOnly) {
    Run({L"service.exe", L"-install", L"-remove"});
    EXPECT_EQ(manager_.Printed(), "VeyraCameraDfuService is installed.\n");
}

TEST_F(CommandLine, IgnoresASwitchBehindTheFirstArgument) {
    Run({L"service.exe", L"x", L"-install"});
    EXPECT_EQ(manager_.Transcript(), (Lines{kUsage, "StartServiceCtrlDispatcherW"}));
}

TEST_F(CommandLine, RunsAsServiceEvenWithoutItsOwnName) {
    Run({});
    EXPECT_EQ(manager_.Transcript(), (Lines{kUsage, "StartServiceCtrlDispatcherW"}));
}

// Run as service.

TEST_F(CommandLine, PrintsTheUsageBeforeItStartsTheDispatcher) {
    Run({L"service.exe"});
    EXPECT_EQ(manager_.Transcript(), (Lines{kUsage, "StartServiceCtrlDispatcherW"}));
    EXPECT_EQ(manager_.Errors(), "");
}

TEST_F(CommandLine, SaysWhyTheServiceCannotRun) {
    manager_.dispatcherError = 1063;
    Run({L"service.exe"});
    EXPECT_EQ(manager_.Transcript(),
              (Lines{kUsage, "StartServiceCtrlDispatcherW", "> Service failed to run w/err 0x00000427\n"}));
    EXPECT_EQ(manager_.Errors(), "");
}

TEST_F(CommandLine, HandsTheDispatcherATableWithTheServiceAndATerminator) {
    std::vector<SERVICE_TABLE_ENTRYW> entries;
    manager_.onDispatch = [&](const SERVICE_TABLE_ENTRYW* table) { entries.assign(table, table + 2); };
    Run({L"service.exe"});
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_STREQ(entries[0].lpServiceName, L"VeyraCameraDfuService");
    EXPECT_EQ(entries[0].lpServiceName, service_.Name());
    EXPECT_EQ(entries[0].lpServiceProc, &DFUServiceBase::ServiceMain);
    EXPECT_EQ(entries[1].lpServiceName, nullptr);
    EXPECT_EQ(entries[1].lpServiceProc, nullptr);
}

const void* registeredService = nullptr;

SERVICE_STATUS_HANDLE WINAPI RefuseHandler(const wchar_t*, LPHANDLER_FUNCTION_EX, void* context) {
    registeredService = context;
    SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
    return nullptr;
}

TEST_F(CommandLine, MakesTheServiceKnownBeforeItStartsTheDispatcher) {
    registeredService = nullptr;
    const test_support::ImportRedirect redirect("RegisterServiceCtrlHandlerExW", RefuseHandler);
    manager_.onDispatch = [](const SERVICE_TABLE_ENTRYW* table) {
        try {
            table[0].lpServiceProc(0, nullptr);
        } catch (const win32::Win32Error&) {
            // The handler is refused, so that nothing of the service runs.
        }
    };
    Run({L"service.exe"});
    EXPECT_EQ(registeredService, &service_);
}

TEST_F(CommandLine, TakesTheNameFromTheServiceObject) {
    SomeService other(L"OtherName");
    std::wstring install = L"-install";
    std::vector<wchar_t*> argv{install.data(), install.data(), nullptr};
    manager_.Watch([&] { RunCommandLine(2, argv.data(), other); });
    EXPECT_EQ(manager_.Printed(), "OtherName is installed.\n");
}

// Install.

constexpr const char* kModulePath = "GetModuleFileNameW(null, 260)";
constexpr const char* kOpenForInstallation = "OpenSCManagerW(null, null, 0x3)";
constexpr const char* kCreate =
    "CreateServiceW(manager, VeyraCameraDfuService, Veyra Camera DFU service, 0x4, 0x10, 0x3, 0x1, "
    "C:\\lab rat\\service.exe, null, null, an empty list, NT AUTHORITY\\LocalService, null)";

TEST_F(CommandLine, InstallsAndThenClosesTheManagerBeforeTheService) {
    RunSwitch(L"-install");
    EXPECT_EQ(manager_.Transcript(),
              (Lines{kModulePath, kOpenForInstallation, kCreate, "> VeyraCameraDfuService is installed.\n",
                     "CloseServiceHandle(manager)", "CloseServiceHandle(service)"}));
    EXPECT_EQ(manager_.Errors(), "");
}

TEST_F(CommandLine, SaysWhyItsOwnPathCannotBeHad) {
    manager_.modulePathLength = 0;
    manager_.modulePathError = 5;
    RunSwitch(L"-install");
    EXPECT_EQ(manager_.Transcript(), (Lines{kModulePath, "> GetModuleFileName failed w/err 0x00000005\n"}));
    EXPECT_EQ(manager_.Errors(), "");
}

// A path that was cut off must not be installed: it would start another program.
TEST_F(CommandLine, InstallsNoPathThatWasCutOff) {
    manager_.modulePath = std::wstring(260, L'p');
    manager_.modulePathError = ERROR_INSUFFICIENT_BUFFER;
    RunSwitch(L"-install");
    EXPECT_EQ(manager_.Transcript(), (Lines{kModulePath, "> GetModuleFileName failed w/err 0x0000007a\n"}));
}

TEST_F(CommandLine, InstallsTheLongestPathThatFits) {
    manager_.modulePath = std::wstring(259, L'p');
    RunSwitch(L"-install");
    EXPECT_EQ(manager_.Printed(), "VeyraCameraDfuService is installed.\n");
    const std::string create = manager_.Transcript().at(2);
    EXPECT_NE(create.find(", " + std::string(259, 'p') + ", "), std::string::npos) << create;
}

TEST_F(CommandLine, SaysWhyTheManagerDoesNotOpenForAnInstallation) {
    manager_.openManagerError = 5;
    RunSwitch(L"-install");
    EXPECT_EQ(manager_.Transcript(),
              (Lines{kModulePath, kOpenForInstallation, "> OpenSCManager failed w/err 0x00000005\n"}));
    EXPECT_EQ(manager_.Errors(), "");
}

TEST_F(CommandLine, SaysWhyTheServiceCannotBeCreatedAndClosesTheManager) {
    manager_.createServiceError = 1073;
    RunSwitch(L"-install");
    EXPECT_EQ(manager_.Transcript(),
              (Lines{kModulePath, kOpenForInstallation, kCreate, "> CreateService failed w/err 0x00000431\n",
                     "CloseServiceHandle(manager)"}));
    EXPECT_EQ(manager_.Errors(), "");
}

TEST_F(CommandLine, PrintsAllEightDigitsOfAnErrorInLowerCase) {
    manager_.createServiceError = 0x80ABCDEF;
    RunSwitch(L"-install");
    EXPECT_EQ(manager_.Printed(), "CreateService failed w/err 0x80abcdef\n");
}

// Remove.

TEST_F(CommandLine, RemovesAStoppedServiceWithoutAWordAboutStopping) {
    manager_.stopError = ERROR_SERVICE_NOT_ACTIVE;
    RunSwitch(L"-remove");
    EXPECT_EQ(manager_.Transcript(), (Lines{kOpenForRemoval, kOpenService, "ControlService(service, 1)",
                                            "DeleteService(service)", "> VeyraCameraDfuService is removed.\n",
                                            "CloseServiceHandle(manager)", "CloseServiceHandle(service)"}));
    EXPECT_EQ(manager_.Errors(), "");
}

TEST_F(CommandLine, StopsARunningServiceAndShowsADotForEachSecond) {
    manager_.statesToTell = {3, 3, 1};
    RunSwitch(L"-remove");
    EXPECT_EQ(manager_.Transcript(),
              (Lines{kOpenForRemoval, kOpenService, "ControlService(service, 1)",
                     "> Stopping VeyraCameraDfuService.", "Sleep(1000)", "QueryServiceStatus(service)", "> .",
                     "Sleep(1000)", "QueryServiceStatus(service)", "> .", "Sleep(1000)",
                     "QueryServiceStatus(service)", "> \nVeyraCameraDfuService is stopped.\n",
                     "DeleteService(service)", "> VeyraCameraDfuService is removed.\n",
                     "CloseServiceHandle(manager)", "CloseServiceHandle(service)"}));
    EXPECT_EQ(manager_.Errors(), "");
}

// A call that goes wrong may well leave a block that reads STOP_PENDING or STOPPED.
TEST_F(CommandLine, DoesNotWaitForAStopThatFailed) {
    manager_.stopError = ERROR_ACCESS_DENIED;
    manager_.stateAfterStop = 3;
    manager_.statesToTell = {3, 3};
    RunSwitch(L"-remove");
    EXPECT_EQ(manager_.Printed(), "VeyraCameraDfuService is removed.\n");
}

TEST_F(CommandLine, DeletesAServiceThatDoesNotStop) {
    manager_.statesToTell = {3, 4};
    RunSwitch(L"-remove");
    EXPECT_EQ(manager_.Printed(),
              "Stopping VeyraCameraDfuService..\nVeyraCameraDfuService failed to stop.\n"
              "VeyraCameraDfuService is removed.\n");
}

TEST_F(CommandLine, WaitsForStopPendingOnly) {
    for (const DWORD state : {2U, 4U, 5U, 6U, 7U, 0U}) {
        manager_.statesToTell = {state, 1};
        RunSwitch(L"-remove");
        EXPECT_EQ(manager_.statesToTell.size(), 1U) << state;
        EXPECT_EQ(manager_.Printed().find("is stopped"), std::string::npos) << state;
    }
}

TEST_F(CommandLine, UsesTheStateThatTheStopLeftWhenTheFirstQueryFails) {
    manager_.stateAfterStop = 1;
    RunSwitch(L"-remove");
    EXPECT_EQ(manager_.Transcript(),
              (Lines{kOpenForRemoval, kOpenService, "ControlService(service, 1)",
                     "> Stopping VeyraCameraDfuService.", "Sleep(1000)", "QueryServiceStatus(service)",
                     "> \nVeyraCameraDfuService is stopped.\n", "DeleteService(service)",
                     "> VeyraCameraDfuService is removed.\n", "CloseServiceHandle(manager)",
                     "CloseServiceHandle(service)"}));
}

TEST_F(CommandLine, FailsToStopWhenTheFirstQueryFailsWhileTheStopIsPending) {
    manager_.stateAfterStop = 3;
    RunSwitch(L"-remove");
    EXPECT_EQ(manager_.Printed(),
              "Stopping VeyraCameraDfuService.\nVeyraCameraDfuService failed to stop.\n"
              "VeyraCameraDfuService is removed.\n");
}

TEST_F(CommandLine, FailsToStopWhenALaterQueryFails) {
    manager_.statesToTell = {3, 3};
    RunSwitch(L"-remove");
    EXPECT_EQ(manager_.Printed(),
              "Stopping VeyraCameraDfuService...\nVeyraCameraDfuService failed to stop.\n"
              "VeyraCameraDfuService is removed.\n");
}

// Ten minutes, and no end in sight until the service itself gives way.
TEST_F(CommandLine, WaitsWithoutAnUpperBound) {
    manager_.statesToTell.assign(600, 3);
    manager_.statesToTell.push_back(1);
    RunSwitch(L"-remove");
    const Lines transcript = manager_.Transcript();
    EXPECT_EQ(std::count(transcript.begin(), transcript.end(), "Sleep(1000)"), 601);
    EXPECT_EQ(std::count(transcript.begin(), transcript.end(), "> ."), 600);
    EXPECT_EQ(std::count(transcript.begin(), transcript.end(), "> \nVeyraCameraDfuService is stopped.\n"), 1);
}

TEST_F(CommandLine, SaysWhyTheManagerDoesNotOpenForARemoval) {
    manager_.openManagerError = 5;
    RunSwitch(L"-remove");
    EXPECT_EQ(manager_.Transcript(), (Lines{kOpenForRemoval, "> OpenSCManager failed w/err 0x00000005\n"}));
    EXPECT_EQ(manager_.Errors(), "");
}

TEST_F(CommandLine, SaysWhyTheServiceDoesNotOpenAndClosesTheManager) {
    manager_.openServiceError = 1060;
    RunSwitch(L"-remove");
    EXPECT_EQ(manager_.Transcript(),
              (Lines{kOpenForRemoval, kOpenService, "> OpenService failed w/err 0x00000424\n",
                     "CloseServiceHandle(manager)"}));
    EXPECT_EQ(manager_.Errors(), "");
}

TEST_F(CommandLine, SaysWhyTheServiceCannotBeDeletedAndClosesBoth) {
    manager_.stopError = ERROR_SERVICE_NOT_ACTIVE;
    manager_.deleteServiceError = 1072;
    RunSwitch(L"-remove");
    EXPECT_EQ(manager_.Transcript(),
              (Lines{kOpenForRemoval, kOpenService, "ControlService(service, 1)", "DeleteService(service)",
                     "> DeleteService failed w/err 0x00000430\n", "CloseServiceHandle(manager)",
                     "CloseServiceHandle(service)"}));
    EXPECT_EQ(manager_.Errors(), "");
}

}  // namespace
