#include "prompt/ToastControllerLaunch.h"

#include <gtest/gtest.h>

#include "diagnostics/TraceProvider.h"
#include "tests/prompt/LaunchCalls.h"
#include "tests/support/TraceRecorder.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using test_support::TraceRecorder;

const std::wstring kClassKey = L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}";
const std::wstring kSettingsKey =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Notifications\\Settings\\Morrow.Veyra.DFUToastCntl";

constexpr GUID kLaunchGroup{0x1FC2A5F0, 0x3B7D, 0x4E0C, {0x9A, 0x54, 0x6D, 0x0B, 0x8E, 0xC1, 0x47, 0x93}};
constexpr USHORT kStartFailed = 10;
constexpr HRESULT kAccessDenied = static_cast<HRESULT>(0x80070005);

void RegisterClass() {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kClassKey.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                              nullptr),
              ERROR_SUCCESS);
    RegCloseKey(key);
}

// The setting as a reader finds it; nothing when it is not there or no number.
std::optional<DWORD> ShowInActionCenter() {
    DWORD value = 0;
    DWORD size = sizeof value;
    if (RegGetValueW(HKEY_CURRENT_USER, kSettingsKey.c_str(), L"ShowInActionCenter", RRF_RT_REG_DWORD,
                     nullptr, &value, &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return value;
}

class ToastControllerLaunch : public testing::Test {
  protected:
    ToastControllerLaunch() {
        CleanUp();
        traces_.EnableSession(2);
        TraceProvider::Register();
    }
    ~ToastControllerLaunch() override {
        calls_.reset();
        CleanUp();
    }

    static void CleanUp() {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey.c_str());
        RegDeleteTreeW(HKEY_CURRENT_USER, kSettingsKey.c_str());
    }

    TraceRecorder traces_;
    std::unique_ptr<LaunchCalls> calls_ = std::make_unique<LaunchCalls>();
};

TEST_F(ToastControllerLaunch, LooksForTheClassInTheMachinesRegistry) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->guidCapacities, std::vector<int>{40});
    ASSERT_FALSE(calls_->opens.empty());
    EXPECT_EQ(calls_->opens[0].parent, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(calls_->opens[0].path, kClassKey);
    EXPECT_EQ(calls_->opens[0].options, 0u);
    EXPECT_EQ(calls_->opens[0].access, 0x20019u);
}

TEST_F(ToastControllerLaunch, MakesItsCallsInThisOrder) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->order, (std::vector<std::string>{
                                 "StringFromGUID2", "RegOpenKeyExW", "OpenProcessToken", "DuplicateTokenEx",
                                 "ConvertStringSidToSidW", "SetTokenInformation", "GetSystemDirectoryW",
                                 "GetSystemDirectoryW", "CreateProcessAsUserW", "WaitForSingleObject",
                                 "CloseHandle", "CloseHandle", "RegOpenKeyExW", "RegSetKeyValueW"}));
}

TEST_F(ToastControllerLaunch, StartsNoProcessForARegisteredClass) {
    RegisterClass();
    calls_->order.clear();
    calls_->closedKeys.clear();
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->order, (std::vector<std::string>{"StringFromGUID2", "RegOpenKeyExW", "RegOpenKeyExW",
                                                       "RegSetKeyValueW"}));
    EXPECT_EQ(ShowInActionCenter(), 1u);
}

TEST_F(ToastControllerLaunch, StartsNoSecondProcessOnceTheFirstHasRegisteredTheClass) {
    calls_->whileStarting = [] { RegisterClass(); };
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->starts.size(), 1u);
}

TEST_F(ToastControllerLaunch, RegistersAgainWhenTheClassIsGone) {
    RegisterClass();
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey.c_str());
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->starts.size(), 1u);
}

TEST_F(ToastControllerLaunch, TakesAClassThatCannotBeOpenedForUnregistered) {
    RegisterClass();
    calls_->Fail("RegOpenKeyExW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->starts.size(), 1u);
}

// Only the handle decides, whatever the status.
TEST_F(ToastControllerLaunch, TakesAHandleForARegisteredClassWhateverTheStatus) {
    calls_->openInstead = [](const LaunchCalls::KeyOpen&, HKEY* opened) -> LSTATUS {
        *opened = HKEY_CLASSES_ROOT;
        return ERROR_ACCESS_DENIED;
    };
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_TRUE(calls_->starts.empty());
}

TEST_F(ToastControllerLaunch, TakesANullHandleForAnUnregisteredClassWhateverTheStatus) {
    calls_->openInstead = [](const LaunchCalls::KeyOpen&, HKEY*) -> LSTATUS { return ERROR_SUCCESS; };
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->starts.size(), 1u);
}

TEST_F(ToastControllerLaunch, DuplicatesItsOwnTokenAsAPrimaryOne) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    ASSERT_EQ(calls_->tokenOpens.size(), 1u);
    EXPECT_EQ(calls_->tokenOpens[0].process, GetCurrentProcess());
    EXPECT_EQ(calls_->tokenOpens[0].access, 0x8Bu);
    ASSERT_EQ(calls_->duplicates.size(), 1u);
    EXPECT_EQ(calls_->duplicates[0].token, LaunchCalls::kOwnToken);
    EXPECT_EQ(calls_->duplicates[0].access, 0xF00FFu);
    EXPECT_EQ(calls_->duplicates[0].attributes, nullptr);
    EXPECT_EQ(calls_->duplicates[0].level, 2);
    EXPECT_EQ(calls_->duplicates[0].type, 1);
}

TEST_F(ToastControllerLaunch, LowersTheDuplicateToMediumIntegrity) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->sids, std::vector<std::wstring>{L"S-1-16-8192"});
    ASSERT_EQ(calls_->informations.size(), 1u);
    EXPECT_EQ(calls_->informations[0].token, LaunchCalls::kDuplicate);
    EXPECT_EQ(calls_->informations[0].informationClass, 25);
    EXPECT_EQ(calls_->informations[0].sid, std::string("\1\1\0\0\0\0\0\x10\0\x20\0\0", 12));
    EXPECT_EQ(calls_->informations[0].attributes, 0x20u);
    EXPECT_EQ(calls_->informations[0].length, 28u);
}

TEST_F(ToastControllerLaunch, GoesOnWhenTheIntegrityCannotBeLowered) {
    calls_->Fail("SetTokenInformation", ERROR_PRIVILEGE_NOT_HELD);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->starts.size(), 1u);
    EXPECT_EQ(ShowInActionCenter(), 1u);
}

TEST_F(ToastControllerLaunch, GoesOnWithoutAnIntegritySid) {
    calls_->Fail("ConvertStringSidToSidW", ERROR_INVALID_SID);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->starts.size(), 1u);
    EXPECT_EQ(ShowInActionCenter(), 1u);
}

TEST_F(ToastControllerLaunch, AsksForTheSystemDirectorysLengthFirst) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    ASSERT_EQ(calls_->directoryQueries.size(), 2u);
    EXPECT_FALSE(calls_->directoryQueries[0].hasBuffer);
    EXPECT_EQ(calls_->directoryQueries[0].size, 0u);
    EXPECT_TRUE(calls_->directoryQueries[1].hasBuffer);
    EXPECT_EQ(calls_->directoryQueries[1].size, calls_->directoryQueries[0].result);
}

TEST_F(ToastControllerLaunch, StartsTheControllerInTheSystemDirectoryToRegisterItself) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    ASSERT_EQ(calls_->starts.size(), 1u);
    const LaunchCalls::Start& start = calls_->starts[0];
    EXPECT_EQ(start.token, LaunchCalls::kDuplicate);
    EXPECT_EQ(start.application, L"C:\\windows\\system32\\VeyraCameraToastCntl.exe");
    EXPECT_EQ(start.commandLine, L"/RegServer");
    EXPECT_EQ(start.processAttributes, nullptr);
    EXPECT_EQ(start.threadAttributes, nullptr);
    EXPECT_EQ(start.inheritHandles, FALSE);
    EXPECT_EQ(start.flags, 0u);
    EXPECT_EQ(start.environment, nullptr);
    EXPECT_EQ(start.currentDirectory, nullptr);
}

TEST_F(ToastControllerLaunch, NamesNothingButTheSizeInTheStartupInformation) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    ASSERT_EQ(calls_->starts.size(), 1u);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&calls_->starts[0].startup);
    EXPECT_EQ(calls_->starts[0].startup.cb, 104u);
    EXPECT_TRUE(std::all_of(bytes + 4, bytes + 104, [](unsigned char byte) { return byte == 0; }));
}

TEST_F(ToastControllerLaunch, WaitsForTheControllersEndWithoutTimeOutAndClosesItsHandles) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    ASSERT_EQ(calls_->waits.size(), 1u);
    EXPECT_EQ(calls_->waits[0].handle, LaunchCalls::kProcess);
    EXPECT_EQ(calls_->waits[0].timeout, 0xFFFFFFFFu);
    EXPECT_EQ(calls_->closedHandles, (std::vector<HANDLE>{LaunchCalls::kProcess, LaunchCalls::kThread}));
}

TEST_F(ToastControllerLaunch, LeavesItsKeysOpen) {
    calls_->whileStarting = [] { RegisterClass(); };
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    calls_->closedKeys.clear();
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_TRUE(calls_->closedKeys.empty());
}

TEST_F(ToastControllerLaunch, GivesTheErrorOfItsTokenAndDoesNothingElse) {
    calls_->Fail("OpenProcessToken", ERROR_ACCESS_DENIED);
    EXPECT_EQ(EnsureToastControllerRegistered(), kAccessDenied);
    EXPECT_EQ(calls_->order,
              (std::vector<std::string>{"StringFromGUID2", "RegOpenKeyExW", "OpenProcessToken"}));
    EXPECT_EQ(ShowInActionCenter(), std::nullopt);
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_F(ToastControllerLaunch, GivesTheErrorOfTheDuplicateAndDoesNothingElse) {
    calls_->Fail("DuplicateTokenEx", ERROR_ACCESS_DENIED);
    EXPECT_EQ(EnsureToastControllerRegistered(), kAccessDenied);
    EXPECT_EQ(calls_->order, (std::vector<std::string>{"StringFromGUID2", "RegOpenKeyExW", "OpenProcessToken",
                                                       "DuplicateTokenEx"}));
    EXPECT_TRUE(calls_->closedHandles.empty());
    EXPECT_EQ(ShowInActionCenter(), std::nullopt);
}

// A code that is not positive passes as it is.
TEST_F(ToastControllerLaunch, GivesZeroWithoutASettingForATokenThatFailsWithoutAnError) {
    calls_->Fail("OpenProcessToken", 0);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(ShowInActionCenter(), std::nullopt);
}

TEST_F(ToastControllerLaunch, TracesAFailedStartAndGoesOnAsIfItHadSucceeded) {
    calls_->Fail("CreateProcessAsUserW", ERROR_BAD_EXE_FORMAT);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    const auto messages = traces_.Find(kLaunchGroup, kStartFailed);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].Code(), 193u);
    EXPECT_TRUE(calls_->waits.empty());
    EXPECT_EQ(calls_->closedHandles, (std::vector<HANDLE>{nullptr, nullptr}));
    EXPECT_EQ(ShowInActionCenter(), 1u);
}

TEST_F(ToastControllerLaunch, TracesAFailedStartAsAnError) {
    traces_.EnableSession(1);
    calls_->Fail("CreateProcessAsUserW", ERROR_BAD_EXE_FORMAT);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_F(ToastControllerLaunch, TracesNothingWhenAllGoesWell) {
    traces_.EnableSession(7);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_F(ToastControllerLaunch, GivesTheResultOfTheSettingAfterAFailedStart) {
    calls_->Fail("CreateProcessAsUserW", ERROR_FILE_NOT_FOUND);
    calls_->Fail("RegSetKeyValueW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(EnsureToastControllerRegistered(), kAccessDenied);
}

TEST_F(ToastControllerLaunch, GivesAFailedWaitUnchangedAndWritesNoSetting) {
    calls_->waitResult = WAIT_FAILED;
    EXPECT_EQ(EnsureToastControllerRegistered(), static_cast<HRESULT>(0xFFFFFFFF));
    EXPECT_TRUE(calls_->closedHandles.empty());
    EXPECT_EQ(calls_->opens.size(), 1u);
    EXPECT_TRUE(calls_->values.empty());
    EXPECT_EQ(ShowInActionCenter(), std::nullopt);
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_F(ToastControllerLaunch, TurnsAPositiveWaitResultIntoAFailure) {
    calls_->waitResult = WAIT_TIMEOUT;
    EXPECT_EQ(EnsureToastControllerRegistered(), static_cast<HRESULT>(0x80070102));
    EXPECT_EQ(ShowInActionCenter(), std::nullopt);
}

TEST_F(ToastControllerLaunch, WritesTheNotificationSettingOfItsOwnAccount) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    ASSERT_EQ(calls_->opens.size(), 2u);
    EXPECT_EQ(calls_->opens[1].parent, HKEY_CURRENT_USER);
    EXPECT_EQ(calls_->opens[1].path, kSettingsKey);
    EXPECT_EQ(calls_->opens[1].options, 0u);
    EXPECT_EQ(calls_->opens[1].access, 0x20019u);
    ASSERT_EQ(calls_->values.size(), 1u);
    EXPECT_EQ(calls_->values[0].parent, HKEY_CURRENT_USER);
    EXPECT_EQ(calls_->values[0].path, kSettingsKey);
    EXPECT_EQ(calls_->values[0].name, L"ShowInActionCenter");
    EXPECT_EQ(calls_->values[0].type, 4u);
    EXPECT_EQ(calls_->values[0].data, std::string("\1\0\0\0", 4));
}

TEST_F(ToastControllerLaunch, CreatesTheSettingsKeyWithItsOneValue) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(ShowInActionCenter(), 1u);
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kSettingsKey.c_str(), 0, KEY_READ, &key), ERROR_SUCCESS);
    DWORD keys = 0;
    DWORD values = 0;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr, nullptr,
                     nullptr, nullptr);
    RegCloseKey(key);
    EXPECT_EQ(keys, 0u);
    EXPECT_EQ(values, 1u);
}

TEST_F(ToastControllerLaunch, TurnsTheSettingOnAgainAndLeavesTheOthersAlone) {
    const DWORD zero = 0;
    RegSetKeyValueW(HKEY_CURRENT_USER, kSettingsKey.c_str(), L"ShowInActionCenter", REG_DWORD, &zero, 4);
    RegSetKeyValueW(HKEY_CURRENT_USER, kSettingsKey.c_str(), L"Rank", REG_DWORD, &zero, 4);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(ShowInActionCenter(), 1u);
    EXPECT_EQ(RegGetValueW(HKEY_CURRENT_USER, kSettingsKey.c_str(), L"Rank", RRF_RT_REG_DWORD, nullptr,
                           nullptr, nullptr),
              ERROR_SUCCESS);
}

TEST_F(ToastControllerLaunch, GivesTheErrorOfTheSettingWithoutATrace) {
    calls_->Fail("RegSetKeyValueW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(EnsureToastControllerRegistered(), kAccessDenied);
    EXPECT_TRUE(traces_.Messages().empty());
}

// On the machine's own tokens and processes: there is no controller to start.
TEST_F(ToastControllerLaunch, GoesOnWithoutAControllerOnTheMachine) {
    calls_.reset();
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    const auto messages = traces_.Find(kLaunchGroup, kStartFailed);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].Code(), 2u);  // ERROR_FILE_NOT_FOUND
    EXPECT_EQ(ShowInActionCenter(), 1u);
}

}  // namespace
