#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

// Records what the program does with events of a name, and hands every call on to Windows. Handles are
// numbered in the order in which they were created. What the program leaves open, the journal closes when it
// goes.
//
// The library's own locks wake their waiters with SetEvent too, on their way out of unlock() and through the
// journal. Whatever is not an event of a name therefore passes without a lock, a container or an allocation:
// a lock taken there could be the very one that is being released.
class EventJournal : public test_support::OnlyOne<EventJournal> {
  public:
    EventJournal();
    ~EventJournal();

    // One line a call, in order:
    //   CreateEventW(no security, manual reset, not signalled, name)
    //   SetEvent(0)
    //   ResetEvent(0)
    //   CloseHandle(0)
    [[nodiscard]] std::vector<std::string> Calls() const;
    void ForgetCalls();
    // Runs at each call that is recorded, just before Windows is called.
    void OnCall(std::function<void(const std::string& call)> action) { onCall_ = std::move(action); }

    // The handle with the number; null when so many were not created.
    [[nodiscard]] HANDLE Handle(std::size_t number) const;
    [[nodiscard]] std::size_t Created() const;
    [[nodiscard]] bool IsOpen(std::size_t number) const;

    // CreateEventW of named events fails from now on.
    void RefuseEvents() { refusesEvents_ = true; }

  private:
    struct Event {
        std::atomic<HANDLE> handle = nullptr;
        std::atomic<bool> isOpen = false;
    };

    static constexpr std::size_t kMostEvents = 512;

    static HANDLE WINAPI RedirectedCreateEvent(LPSECURITY_ATTRIBUTES security, BOOL manualReset,
                                               BOOL signalled, LPCWSTR name);
    static BOOL WINAPI RedirectedSetEvent(HANDLE event);
    static BOOL WINAPI RedirectedResetEvent(HANDLE event);
    static BOOL WINAPI RedirectedCloseHandle(HANDLE handle);

    void Record(const std::string& call);
    void RecordOn(const char* function, HANDLE handle, bool closes);
    void Add(HANDLE handle);
    // The open event with the handle; kMostEvents when there is none.
    [[nodiscard]] std::size_t NumberOf(HANDLE handle) const;

    mutable std::mutex lock_;  // guards the calls, and that events are added one after the other
    Event events_[kMostEvents];
    std::atomic<std::size_t> created_ = 0;
    std::vector<std::string> calls_;
    std::function<void(const std::string&)> onCall_;
    bool refusesEvents_ = false;
    test_support::ImportRedirect createEvent_;
    test_support::ImportRedirect setEvent_;
    test_support::ImportRedirect resetEvent_;
    test_support::ImportRedirect closeHandle_;
};
