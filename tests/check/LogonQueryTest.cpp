#include "check/LogonQuery.h"

#include "tests/support/ImportRedirect.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <wtsapi32.h>

#include <cwchar>
#include <optional>
#include <string>
#include <vector>

namespace {

using test_support::ImportRedirect;

struct Session {
    DWORD number = 0;
    WTS_CONNECTSTATE_CLASS state = WTSActive;
    std::optional<std::wstring> user;  // none: Windows does not tell
};

struct FakeSessions {
    bool areTold = true;
    std::vector<Session> sessions;
    int inUse = 0;  // what was given out and not yet freed
};
FakeSessions* machine = nullptr;

BOOL WINAPI Enumerate(HANDLE, DWORD, DWORD, WTS_SESSION_INFOW** list, DWORD* count) {
    if (!machine->areTold) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    *count = static_cast<DWORD>(machine->sessions.size());
    *list = static_cast<WTS_SESSION_INFOW*>(
        LocalAlloc(LPTR, (machine->sessions.size() + 1) * sizeof(WTS_SESSION_INFOW)));
    for (std::size_t index = 0; index < machine->sessions.size(); ++index) {
        (*list)[index].SessionId = machine->sessions[index].number;
        (*list)[index].State = machine->sessions[index].state;
    }
    ++machine->inUse;
    return TRUE;
}

BOOL WINAPI Query(HANDLE, DWORD session, WTS_INFO_CLASS what, wchar_t** text, DWORD* size) {
    EXPECT_EQ(what, WTSUserName);
    for (const Session& each : machine->sessions) {
        if (each.number == session && each.user) {
            *size = static_cast<DWORD>((each.user->size() + 1) * sizeof(wchar_t));
            *text = static_cast<wchar_t*>(LocalAlloc(LPTR, *size));
            std::wmemcpy(*text, each.user->c_str(), each.user->size());
            ++machine->inUse;
            return TRUE;
        }
    }
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

void WINAPI Free(void* memory) {
    LocalFree(memory);
    --machine->inUse;
}

class LogonQueryTest : public ::testing::Test {
  protected:
    LogonQueryTest() { machine = &sessions_; }
    ~LogonQueryTest() override {
        EXPECT_EQ(sessions_.inUse, 0);
        machine = nullptr;
    }

    bool IsNobodyWith(std::vector<Session> sessions) {
        sessions_.sessions = std::move(sessions);
        return check::IsNobodyLoggedOn();
    }

    FakeSessions sessions_;
    const Session services_{0, WTSDisconnected, L""};
    const Session logonScreen_{1, WTSConnected, L""};
    const Session listener_{65536, WTSListen, std::nullopt};
    ImportRedirect enumerate_{"WTSEnumerateSessionsW", &Enumerate};
    ImportRedirect query_{"WTSQuerySessionInformationW", &Query};
    ImportRedirect free_{"WTSFreeMemory", &Free};
};

}  // namespace

TEST_F(LogonQueryTest, NobodyIsWhereNoSessionHasAUser) {
    EXPECT_TRUE(IsNobodyWith({services_, logonScreen_, listener_}));
    EXPECT_TRUE(IsNobodyWith({services_}));
}

TEST_F(LogonQueryTest, SomebodyIsAtTheScreenOrFarAwayOrDisconnected) {
    EXPECT_FALSE(IsNobodyWith({services_, {1, WTSActive, L"anna"}, listener_}));
    EXPECT_FALSE(IsNobodyWith({services_, logonScreen_, {2, WTSActive, L"anna"}, listener_}));
    EXPECT_FALSE(IsNobodyWith({services_, {1, WTSDisconnected, L"anna"}, logonScreen_}));
}

TEST_F(LogonQueryTest, ASessionOfWhichNothingIsToldMayBeSomebodys) {
    EXPECT_FALSE(IsNobodyWith({services_, {1, WTSActive, std::nullopt}}));
}

TEST_F(LogonQueryTest, NobodyIsNotSaidWhereNothingIsTold) {
    EXPECT_FALSE(IsNobodyWith({}));
    sessions_.areTold = false;
    EXPECT_FALSE(IsNobodyWith({services_}));
}
