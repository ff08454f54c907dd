#include "packaging/start_type/StartType.h"

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using start_type::SetStartType;
using start_type::StartType;
using start_type::StartTypeOf;

// The service control manager's side: one service of the name "camera". Each call is a line.
class FakeManager : public test_support::OnlyOne<FakeManager> {
  public:
    std::vector<std::string> calls;
    DWORD openManagerError = ERROR_SUCCESS;
    DWORD openServiceError = ERROR_SUCCESS;
    DWORD configError = ERROR_SUCCESS;
    DWORD delayError = ERROR_SUCCESS;

  private:
    static SC_HANDLE Handle(DWORD error) {
        SetLastError(error);
        return error == ERROR_SUCCESS ? reinterpret_cast<SC_HANDLE>(current_) : nullptr;
    }
    static BOOL Answer(DWORD error) {
        SetLastError(error);
        return error == ERROR_SUCCESS;
    }
    static SC_HANDLE WINAPI OnOpenManager(const wchar_t* machine, const wchar_t* database, DWORD access) {
        EXPECT_EQ(machine, nullptr);
        EXPECT_EQ(database, nullptr);
        current_->calls.push_back("manager " + std::to_string(access));
        return Handle(current_->openManagerError);
    }
    static SC_HANDLE WINAPI OnOpenService(SC_HANDLE, const wchar_t* name, DWORD access) {
        EXPECT_STREQ(name, L"camera");
        current_->calls.push_back("service " + std::to_string(access));
        return Handle(current_->openServiceError);
    }
    static BOOL WINAPI OnChangeConfig(SC_HANDLE, DWORD type, DWORD start, DWORD control, const wchar_t* path,
                                      const wchar_t* group, DWORD* tag, const wchar_t* dependencies,
                                      const wchar_t* account, const wchar_t* password, const wchar_t* name) {
        EXPECT_EQ(type, SERVICE_NO_CHANGE);
        EXPECT_EQ(control, SERVICE_NO_CHANGE);
        EXPECT_EQ(tag, nullptr);
        for (const wchar_t* text : {path, group, dependencies, account, password, name}) {
            EXPECT_EQ(text, nullptr);
        }
        current_->calls.push_back("start " + std::to_string(start));
        return Answer(current_->configError);
    }
    static BOOL WINAPI OnChangeConfig2(SC_HANDLE, DWORD level, void* info) {
        EXPECT_EQ(level, DWORD{SERVICE_CONFIG_DELAYED_AUTO_START_INFO});
        const auto* delay = static_cast<const SERVICE_DELAYED_AUTO_START_INFO*>(info);
        current_->calls.push_back(delay->fDelayedAutostart ? "delayed" : "not delayed");
        return Answer(current_->delayError);
    }
    static BOOL WINAPI OnClose(SC_HANDLE) {
        current_->calls.emplace_back("close");
        return TRUE;
    }

    test_support::ImportRedirect openManager_{"OpenSCManagerW", &OnOpenManager};
    test_support::ImportRedirect openService_{"OpenServiceW", &OnOpenService};
    test_support::ImportRedirect changeConfig_{"ChangeServiceConfigW", &OnChangeConfig};
    test_support::ImportRedirect changeConfig2_{"ChangeServiceConfig2W", &OnChangeConfig2};
    test_support::ImportRedirect close_{"CloseServiceHandle", &OnClose};
};

using Calls = std::vector<std::string>;

TEST(StartTypeOf, KnowsFourWordsInTheirCase) {
    EXPECT_EQ(StartTypeOf(L"Automatic"), StartType::kAutomatic);
    EXPECT_EQ(StartTypeOf(L"Delayed"), StartType::kDelayed);
    EXPECT_EQ(StartTypeOf(L"Manual"), StartType::kManual);
    EXPECT_EQ(StartTypeOf(L"Disabled"), StartType::kDisabled);
    for (const wchar_t* word : {L"", L"automatic", L"Automatic ", L"Auto", L"Boot"}) {
        EXPECT_EQ(StartTypeOf(word), std::nullopt) << word;
    }
}

TEST(SetStartType, ChangesTheStartAndTheDelayAlone) {
    FakeManager manager;
    EXPECT_EQ(SetStartType(L"camera", StartType::kDelayed), 0U);
    EXPECT_EQ(manager.calls, (Calls{"manager 1", "service 2", "start 2", "delayed", "close", "close"}));
}

TEST(SetStartType, AutomaticTakesADelayAway) {
    FakeManager manager;
    EXPECT_EQ(SetStartType(L"camera", StartType::kAutomatic), 0U);
    EXPECT_EQ(manager.calls, (Calls{"manager 1", "service 2", "start 2", "not delayed", "close", "close"}));
}

TEST(SetStartType, LeavesTheDelayOfAServiceThatDoesNotStartWithWindows) {
    FakeManager manager;
    EXPECT_EQ(SetStartType(L"camera", StartType::kManual), 0U);
    EXPECT_EQ(SetStartType(L"camera", StartType::kDisabled), 0U);
    EXPECT_EQ(manager.calls, (Calls{"manager 1", "service 2", "start 3", "close", "close",  //
                                    "manager 1", "service 2", "start 4", "close", "close"}));
}

TEST(SetStartType, TellsTheCodeOfTheCallThatFailed) {
    FakeManager manager;
    manager.delayError = ERROR_NOT_ENOUGH_MEMORY;
    EXPECT_EQ(SetStartType(L"camera", StartType::kAutomatic), 8U);
    manager.configError = ERROR_SERVICE_MARKED_FOR_DELETE;
    EXPECT_EQ(SetStartType(L"camera", StartType::kManual), 1072U);
    manager.openServiceError = ERROR_SERVICE_DOES_NOT_EXIST;
    EXPECT_EQ(SetStartType(L"camera", StartType::kManual), 1060U);
    manager.openManagerError = ERROR_ACCESS_DENIED;
    manager.calls.clear();
    EXPECT_EQ(SetStartType(L"camera", StartType::kManual), 5U);
    EXPECT_EQ(manager.calls, (Calls{"manager 1"}));
}

// Wine has the one call, and not the level.
TEST(SetStartType, ASystemWithoutDelaysHasNoneToTakeAway) {
    FakeManager manager;
    manager.delayError = ERROR_INVALID_LEVEL;
    EXPECT_EQ(SetStartType(L"camera", StartType::kAutomatic), 0U);
    EXPECT_EQ(SetStartType(L"camera", StartType::kDelayed), 124U);
}

}  // namespace
