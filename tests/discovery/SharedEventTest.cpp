#include "discovery/DeviceInterfaceWatcher.h"

#include "tests/support/FakeConfigurationManager.h"
#include "tests/support/Patience.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>

namespace {

const std::wstring kDevice = L"\\\\?\\usb#vid_2f1a&pid_7e01#1#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
constexpr const wchar_t* kNameVariable = L"VEYRA_TEST_EVENT_NAME";

using test_support::kPatienceMs;

// Starts this program once more, for one test and with the name of the event.
win32::UniqueKernelHandle StartElsewhere(const std::string& test, const std::wstring& eventName) {
    std::array<char, 1024> program{};
    GetModuleFileNameA(nullptr, program.data(), static_cast<DWORD>(program.size()));
    std::string commandLine = std::string("\"") + program.data() +
                              "\" --gtest_also_run_disabled_tests --gtest_brief=1 --gtest_output= "
                              "--gtest_filter=SharedEvent.DISABLED_" +
                              test;
    SetEnvironmentVariableW(kNameVariable, eventName.c_str());
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    if (!CreateProcessA(program.data(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &started)) {
        throw std::runtime_error("this program does not start again");
    }
    CloseHandle(started.hThread);
    return win32::UniqueKernelHandle(started.hProcess);
}

// The exit code of a run elsewhere: 0 when its test passed.
DWORD EndOf(const win32::UniqueKernelHandle& process) {
    DWORD code = STILL_ACTIVE;
    WaitForSingleObject(process.Get(), kPatienceMs);
    GetExitCodeProcess(process.Get(), &code);
    return code;
}

std::wstring NameFromElsewhere() {
    std::array<wchar_t, 256> name{};
    EXPECT_NE(GetEnvironmentVariableW(kNameVariable, name.data(), static_cast<DWORD>(name.size())), 0U);
    return name.data();
}

bool IsSignalled(const DeviceInterfaceWatcher& watcher) {
    return WaitForSingleObject(watcher.ArrivalEvent(), 0) == WAIT_OBJECT_0;
}

class SharedEvent : public testing::Test {
  protected:
    const std::wstring name_ = L"shared event " + std::to_wstring(GetCurrentProcessId());
    test_support::FakeConfigurationManager manager_;
};

}  // namespace

// The first two are what the other process does; its name comes from the test that starts it.

TEST_F(SharedEvent, DISABLED_FindsADeviceAndWaitsForTheReset) {
    const DeviceInterfaceWatcher watcher(NameFromElsewhere(), L"vid_2f1a", L"pid_7e01");
    manager_.Plug(kDevice);
    const ULONGLONG begin = GetTickCount64();
    while (IsSignalled(watcher)) {
        ASSERT_LT(GetTickCount64() - begin, kPatienceMs);
        Sleep(1);
    }
}

TEST_F(SharedEvent, DISABLED_Refreshes) {
    DeviceInterfaceWatcher watcher(NameFromElsewhere(), L"vid_2f1a", L"pid_7e01");
    watcher.Refresh();
}

TEST_F(SharedEvent, IsSignalledByTheWatcherOfTheSameNameInAnotherProcess) {
    DeviceInterfaceWatcher watcher(name_, L"vid_2f1a", L"pid_7e01");
    ASSERT_FALSE(IsSignalled(watcher));
    const auto elsewhere = StartElsewhere("FindsADeviceAndWaitsForTheReset", name_);
    EXPECT_EQ(WaitForSingleObject(watcher.ArrivalEvent(), kPatienceMs), DWORD{WAIT_OBJECT_0});
    EXPECT_TRUE(watcher.Devices().empty());  // the event is shared, the list is not
    watcher.Refresh();
    EXPECT_EQ(EndOf(elsewhere), 0U);
}

TEST_F(SharedEvent, IsResetByTheWatcherOfTheSameNameInAnotherProcess) {
    DeviceInterfaceWatcher watcher(name_, L"vid_2f1a", L"pid_7e01");
    manager_.Plug(kDevice);
    ASSERT_TRUE(IsSignalled(watcher));
    EXPECT_EQ(EndOf(StartElsewhere("Refreshes", name_)), 0U);
    EXPECT_FALSE(IsSignalled(watcher));
    EXPECT_EQ(watcher.Devices().size(), 1U);
}

TEST_F(SharedEvent, IsLeftAloneByAWatcherOfAnotherNameInAnotherProcess) {
    DeviceInterfaceWatcher watcher(name_, L"vid_2f1a", L"pid_7e01");
    manager_.Plug(kDevice);
    ASSERT_TRUE(IsSignalled(watcher));
    EXPECT_EQ(EndOf(StartElsewhere("Refreshes", name_ + L" of another")), 0U);
    EXPECT_TRUE(IsSignalled(watcher));
}
