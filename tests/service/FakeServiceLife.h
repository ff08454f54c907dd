#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

// What a service finds around it between its start and its stop: the event log, and a thread pool that keeps
// the work item for the test to run. Records what happens there. A wait without a time-out runs the work
// item, and so never hangs. A thread that is created has ended when the call returns, unless it is to run on:
// the time-out of a wait for it may be a fake clock's. Only one exists at a time.
class FakeServiceLife : public test_support::OnlyOne<FakeServiceLife> {
  public:
    struct EventLogEntry {
        std::wstring source;
        bool hasServer;
        WORD type;
        WORD category;
        DWORD id;
        const void* user;
        DWORD dataSize;
        const void* data;
        std::vector<std::wstring> strings;
    };
    struct WorkItem {
        LPTHREAD_START_ROUTINE function;
        void* context;
        ULONG flags;
    };
    struct Wait {
        HANDLE object;
        DWORD milliseconds;
    };

    FakeServiceLife();

    // The call fails with this last error, 0 for success.
    DWORD createEventError = 0;  // of an unnamed event
    DWORD namedEventError = 0;   // of an event with a name: the watcher's
    DWORD queueError = 0;
    DWORD waitError = 0;
    // A thread that is created from now on runs beside its creator. It has to have ended before this object
    // does: AwaitThreads() waits for all of them.
    bool letsThreadsRunOn = false;
    void AwaitThreads();
    // Told each call, by name, that is made.
    std::function<void(const std::string& function)> report;

    // Runs the queued work item on this thread.
    void RunWorkItem();

    std::vector<EventLogEntry> eventLog;
    int closedEventSources = 0;
    std::vector<WorkItem> workItems;
    std::vector<Wait> waits;  // without time-out
    std::vector<HANDLE> unnamedEvents;
    std::vector<HANDLE> closedUnnamedEvents;

  private:
    static HANDLE WINAPI OnRegisterEventSource(const wchar_t* server, const wchar_t* source);
    static BOOL WINAPI OnReportEvent(HANDLE log, WORD type, WORD category, DWORD id, void* user,
                                     WORD stringCount, DWORD dataSize, const wchar_t** strings, void* data);
    static BOOL WINAPI OnDeregisterEventSource(HANDLE log);
    static BOOL WINAPI OnQueue(LPTHREAD_START_ROUTINE function, void* context, ULONG flags);
    static DWORD WINAPI OnWait(HANDLE object, DWORD milliseconds);
    static HANDLE WINAPI OnCreateEvent(SECURITY_ATTRIBUTES* security, BOOL manualReset, BOOL initialState,
                                       const wchar_t* name);
    static BOOL WINAPI OnCloseHandle(HANDLE handle);
    static HANDLE WINAPI OnCreateThread(SECURITY_ATTRIBUTES* security, SIZE_T stackSize,
                                        LPTHREAD_START_ROUTINE function, void* context, DWORD flags,
                                        DWORD* id);

    void Report(const std::string& function) const;
    // One that was closed is no more: its number may be another object's by now.
    [[nodiscard]] bool IsOpenEvent(HANDLE handle) const;

    std::vector<HANDLE> threads_;  // that run on
    std::wstring openSource_;
    bool openSourceHasServer_ = false;
    DWORD ownThread_ = GetCurrentThreadId();
    test_support::ImportRedirect registerEventSource_;
    test_support::ImportRedirect reportEvent_;
    test_support::ImportRedirect deregisterEventSource_;
    test_support::ImportRedirect queue_;
    test_support::ImportRedirect wait_;
    test_support::ImportRedirect createEvent_;
    test_support::ImportRedirect closeHandle_;
    test_support::ImportRedirect createThread_;
};
