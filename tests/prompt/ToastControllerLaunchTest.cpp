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
using Lines = std::vector<std::string>;

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

    [[nodiscard]] std::size_t Starts() const { return calls_->LinesOf("CreateProcessAsUserW").size(); }

    TraceRecorder traces_;
    std::unique_ptr<LaunchCalls> calls_ = std::make_unique<LaunchCalls>();
};

TEST_F(ToastControllerLaunch, LooksForTheClassInTheMachinesRegistry) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->LinesOf("StringFromGUID2"), Lines{"StringFromGUID2(40 characters)"});
    EXPECT_EQ(calls_->LinesOf("RegOpenKeyExW").at(0),
              "RegOpenKeyExW(HKEY_LOCAL_MACHINE, "
              "SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}, 0, 0x20019)");
}

TEST_F(ToastControllerLaunch, MakesItsCallsInThisOrder) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->Order(),
              (Lines{"StringFromGUID2", "RegOpenKeyExW", "OpenProcessToken", "DuplicateTokenEx",
                     "ConvertStringSidToSidW", "SetTokenInformation", "GetSystemDirectoryW",
                     "GetSystemDirectoryW", "CreateProcessAsUserW", "WaitForSingleObject", "CloseHandle",
                     "CloseHandle", "RegOpenKeyExW", "RegSetKeyValueW"}));
}

TEST_F(ToastControllerLaunch, StartsNoProcessForARegisteredClass) {
    RegisterClass();
    calls_->Forget();
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->Order(),
              (Lines{"StringFromGUID2", "RegOpenKeyExW", "RegOpenKeyExW", "RegSetKeyValueW"}));
    EXPECT_EQ(ShowInActionCenter(), 1u);
}

TEST_F(ToastControllerLaunch, StartsNoSecondProcessOnceTheFirstHasRegisteredTheClass) {
    calls_->whileStarting = [] { RegisterClass(); };
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(Starts(), 1u);
}

TEST_F(ToastControllerLaunch, RegistersAgainWhenTheClassIsGone) {
    RegisterClass();
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey.c_str());
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(Starts(), 1u);
}

TEST_F(ToastControllerLaunch, TakesAClassThatCannotBeOpenedForUnregistered) {
    RegisterClass();
    calls_->Fail("RegOpenKeyExW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(Starts(), 1u);
}

// Only the handle decides, whatever the status.
TEST_F(ToastControllerLaunch, TakesAHandleForARegisteredClassWhateverTheStatus) {
    calls_->openInstead = [](HKEY* opened) -> LSTATUS {
        *opened = HKEY_CLASSES_ROOT;
        return ERROR_ACCESS_DENIED;
    };
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(Starts(), 0u);
}

TEST_F(ToastControllerLaunch, TakesANullHandleForAnUnregisteredClassWhateverTheStatus) {
    calls_->openInstead = [](HKEY*) -> LSTATUS { return ERROR_SUCCESS; };
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(Starts(), 1u);
}

TEST_F(ToastControllerLaunch, DuplicatesItsOwnTokenAsAPrimaryOne) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->LinesOf("OpenProcessToken"), Lines{"OpenProcessToken(this process, 0x8B)"});
    EXPECT_EQ(calls_->LinesOf("DuplicateTokenEx"),
              Lines{"DuplicateTokenEx(own token, 0xF00FF, null, level 2, type 1)"});
}

TEST_F(ToastControllerLaunch, LowersTheDuplicateToMediumIntegrity) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->LinesOf("ConvertStringSidToSidW"), Lines{"ConvertStringSidToSidW(S-1-16-8192)"});
    EXPECT_EQ(calls_->LinesOf("SetTokenInformation"),
              Lines{"SetTokenInformation(duplicate, class 25, 01 01 00 00 00 00 00 10 00 20 00 00, "
                    "attributes 0x20, 28 bytes)"});
}

TEST_F(ToastControllerLaunch, GoesOnWhenTheIntegrityCannotBeLowered) {
    calls_->Fail("SetTokenInformation", ERROR_PRIVILEGE_NOT_HELD);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(Starts(), 1u);
    EXPECT_EQ(ShowInActionCenter(), 1u);
}

TEST_F(ToastControllerLaunch, GoesOnWithoutAnIntegritySid) {
    calls_->Fail("ConvertStringSidToSidW", ERROR_INVALID_SID);
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(Starts(), 1u);
    EXPECT_EQ(ShowInActionCenter(), 1u);
}

// 20 characters are "C:\\windows\\system32" with its terminator.
TEST_F(ToastControllerLaunch, AsksForTheSystemDirectorysLengthFirst) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->LinesOf("GetSystemDirectoryW"),
              (Lines{"GetSystemDirectoryW(no buffer, 0 characters)", "GetSystemDirectoryW(20 characters)"}));
}

TEST_F(ToastControllerLaunch, StartsTheControllerInTheSystemDirectoryToRegisterItself) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->LinesOf("CreateProcessAsUserW"),
              Lines{"CreateProcessAsUserW(duplicate, C:\\windows\\system32\\VeyraCameraToastCntl.exe, "
                    "/RegServer, null, null, inherit 0, flags 0, null, null)"});
}

TEST_F(ToastControllerLaunch, NamesNothingButTheSizeInTheStartupInformation) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&calls_->Startup());
    EXPECT_EQ(calls_->Startup().cb, 104u);
    EXPECT_TRUE(std::all_of(bytes + 4, bytes + 104, [](unsigned char byte) { return byte == 0; }));
}

TEST_F(ToastControllerLaunch, WaitsForTheControllersEndWithoutTimeOutAndClosesItsHandles) {
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->LinesOf("WaitForSingleObject"), Lines{"WaitForSingleObject(process, 0xFFFFFFFF)"});
    EXPECT_EQ(calls_->LinesOf("CloseHandle"), (Lines{"CloseHandle(process)", "CloseHandle(thread)"}));
}

TEST_F(ToastControllerLaunch, LeavesItsKeysOpen) {
    calls_->whileStarting = [] { RegisterClass(); };
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    calls_->Forget();
    EXPECT_EQ(EnsureToastControllerRegistered(), 0);
    EXPECT_EQ(calls_->LinesOf("RegCloseKey"), Lines{});
}

TEST_F(ToastControllerLaunch, GivesTheErrorOfItsTokenAndDoesNothingElse) {
    calls_->Fail("OpenProcessToken", ERROR_ACCESS_DENIED);
    EXPECT_EQ(EnsureToastControllerRegistered(), kAccessDenied);
    EXPECT_EQ(calls_->Order(), (Lines{"StringFromGUID2", "RegOpenKeyExW", "OpenProcessToken"}));
    EXPECT_EQ(ShowInActionCenter(), std::nullopt);
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_F(ToastControllerLaunch, GivesTheErrorOfTheDuplicateAndDoesNothingElse) {
    calls_->Fail("DuplicateTokenEx", ERROR_ACCESS_DENIED);
    EXPECT_EQ(EnsureToastControllerRegistered(), kAccessDenied);
    EXPECT_EQ(calls_->Order(),
              (Lines{"StringFromGUID2", "RegOpenKeyExW", "OpenProcessToken", "DuplicateTokenEx"}));
    EXPECT_EQ(calls_->LinesOf("CloseHandle"), Lines{});
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
    EXPECT_EQ(calls_->LinesOf("WaitForSingleObject"), Lines{});
    EXPECT_EQ(calls_->LinesOf("CloseHandle"), (Lines{"CloseHandle(null)", "CloseHandle(null)"}));
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
    EXPECT_EQ(calls_->LinesOf("CloseHandle"), Lines{});
    EXPECT_EQ(calls_->LinesOf("RegOpenKeyExW").size(), 1u);
    EXPECT_EQ(calls_->LinesOf("RegSetKeyValueW"), Lines{});
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
    const std::string settings =
        "HKEY_CURRENT_USER, SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Notifications\\Settings\\"
        "Morrow.Veyra.DFUToastCntl";
    const Lines opens = calls_->LinesOf("RegOpenKeyExW");
    ASSERT_EQ(opens.size(), 2u);
    EXPECT_EQ(opens[1], "RegOpenKeyExW(" + settings + ", 0, 0x20019)");
    EXPECT_EQ(calls_->LinesOf("RegSetKeyValueW"),
              Lines{"RegSetKeyValueW(" + settings + ", ShowInActionCenter, type 4, 01 00 00 00)"});
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
