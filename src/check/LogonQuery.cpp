#include "check/LogonQuery.h"

#include <windows.h>
#include <wtsapi32.h>

#include <algorithm>
#include <memory>
#include <span>

namespace check {
namespace {

struct SessionsDeleter {
    void operator()(void* memory) const { WTSFreeMemory(memory); }
};
template <typename Content>
using SessionsMemory = std::unique_ptr<Content, SessionsDeleter>;

// The logon screen's session and that of the services have no user's name.
bool IsOfNobody(DWORD session) {
    wchar_t* name = nullptr;
    DWORD size = 0;
    if (!WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, session, WTSUserName, &name, &size) ||
        name == nullptr) {
        return false;
    }
    const SessionsMemory<wchar_t> owner(name);
    return *name == L'\0';
}

}  // namespace

bool IsNobodyLoggedOn() {
    WTS_SESSION_INFOW* list = nullptr;
    DWORD count = 0;
    if (!WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &list, &count) || list == nullptr) {
        return false;
    }
    const SessionsMemory<WTS_SESSION_INFOW> owner(list);
    const std::span<const WTS_SESSION_INFOW> sessions(list, count);
    return !sessions.empty() &&
           std::all_of(sessions.begin(), sessions.end(), [](const WTS_SESSION_INFOW& each) {
               return each.State == WTSListen || IsOfNobody(each.SessionId);
           });
}

}  // namespace check
