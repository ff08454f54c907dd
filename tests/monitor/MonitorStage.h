#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

// What a monitor finds around it besides the registry: a clock on which sleeping takes no time, a change
// notification that the test scripts, and a command interpreter that runs nothing. Records what the monitor
// did with them, on whichever thread. Only one exists at a time, and it outlives the monitor.
class MonitorStage : public test_support::OnlyOne<MonitorStage> {
  public:
    struct Arming {
        HKEY key;
        BOOL subtree;
        DWORD filter;
        HANDLE event;
        BOOL asynchronous;
        DWORD thread;
    };
    struct EventCreation {
        const SECURITY_ATTRIBUTES* attributes;
        BOOL manualReset;
        BOOL initiallySet;
        bool hasName;
        HANDLE event;
    };
    struct Command {
        std::string line;
        DWORD thread;
    };

    MonitorStage();
    ~MonitorStage();

    // Runs in every sleep, command or wait for the watched event, on the thread that does it.
    std::function<void()> whileSleeping;
    std::function<void(const std::string& line)> whileRunning;
    // Gives the result of a wait for the watched event.
    std::function<DWORD()> whileWaiting;

    // Arming succeeds without a registry key; until this is called, the registry decides.
    void LetArmingSucceed() { armingSucceeds_ = true; }
    void FailEventCreation() { eventCreationFails_ = true; }

    [[nodiscard]] std::vector<DWORD> Sleeps() const { return Copy(sleeps_); }
    [[nodiscard]] std::vector<EventCreation> EventCreations() const { return Copy(eventCreations_); }
    [[nodiscard]] std::vector<Arming> Armings() const { return Copy(armings_); }
    // Time-outs of the waits for the watched event.
    [[nodiscard]] std::vector<DWORD> Waits() const { return Copy(waits_); }
    [[nodiscard]] std::vector<Command> Commands() const { return Copy(commands_); }
    // The lines of the commands, sorted: nothing orders the two.
    [[nodiscard]] std::vector<std::string> CommandLines() const;
    // How often the watched event was closed, and with it the watched key, in the order in which it happened.
    [[nodiscard]] std::vector<std::string> Closes() const { return Copy(closes_); }

  private:
    static void WINAPI OnSleep(DWORD milliseconds);
    static HANDLE WINAPI OnCreateEvent(SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL initiallySet,
                                       const wchar_t* name);
    static LSTATUS WINAPI OnArm(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous);
    static DWORD WINAPI OnWait(HANDLE handle, DWORD milliseconds);
    static BOOL WINAPI OnCloseHandle(HANDLE handle);
    static LSTATUS WINAPI OnCloseKey(HKEY key);
    static int __cdecl OnSystem(const char* line);

    template <typename Element>
    [[nodiscard]] std::vector<Element> Copy(const std::vector<Element>& records) const {
        const std::scoped_lock guard(lock_);
        return records;
    }
    template <typename Element>
    void Record(std::vector<Element>& records, Element element) {
        const std::scoped_lock guard(lock_);
        records.push_back(std::move(element));
    }

    // The locks of the C++ library wait for and close handles too: only this one is the monitor's.
    std::atomic<HANDLE> watchedEvent_{nullptr};
    std::atomic<bool> armingSucceeds_{false};
    std::atomic<bool> eventCreationFails_{false};

    mutable std::mutex lock_;
    std::vector<DWORD> sleeps_;
    std::vector<EventCreation> eventCreations_;
    std::vector<Arming> armings_;
    std::vector<DWORD> waits_;
    std::vector<Command> commands_;
    std::vector<std::string> closes_;

    test_support::ImportRedirect sleep_;
    test_support::ImportRedirect createEvent_;
    test_support::ImportRedirect arm_;
    test_support::ImportRedirect wait_;
    test_support::ImportRedirect closeHandle_;
    test_support::ImportRedirect closeKey_;
    test_support::ImportRedirect system_;
};
