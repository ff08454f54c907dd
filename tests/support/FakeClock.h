#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

namespace test_support {

// Time that passes only when the code under test waits. While it lives, Sleep, GetTickCount64 and timed
// WaitForSingleObject of the program go to it: a sleep returns at once and has taken its milliseconds; a wait
// looks at the real object and, when that is not signalled, lets the time-out pass on the fake clock. What a
// test scheduled with After runs on the way, on the thread that waits, and can signal the object.
//
// A thread that waits through the clock must have ended before the clock goes. Waits without a time-out and
// those of 0 ms go to Windows, the former unrecorded. One clock at a time. Mind that the library's timed
// waits (std::future::wait_for) are such waits too on a thread that the clock rules.
class FakeClock : public OnlyOne<FakeClock> {
  public:
    // Whose time it is: the thread's that made the clock, or every thread's. On other threads a fake wait
    // takes about a real millisecond, so that a thread that polls does not starve the test.
    enum class Threads { Own, All };

    struct Call {
        enum class Kind { Sleep, Wait };
        Kind kind;
        DWORD milliseconds;
        HANDLE object;  // null for a sleep
        DWORD result;   // 0 for a sleep
        ULONGLONG start;
    };

    explicit FakeClock(Threads threads = Threads::Own);

    // What GetTickCount64 answers. Starts shortly before a value that 32 bits do not hold.
    [[nodiscard]] ULONGLONG Now() const;
    // Milliseconds since the clock was made.
    [[nodiscard]] ULONGLONG Elapsed() const;

    // Lets time pass, running what falls due.
    void Advance(ULONGLONG milliseconds);
    // Runs `action` when that much more time has passed. Actions of one moment run in the order given.
    void After(ULONGLONG milliseconds, std::function<void()> action);

    // Does `act` without the clock: what it waits for on this thread takes the time that it takes.
    void InRealTime(const std::function<void()>& act);

    // Everything that was waited for, in order, on the threads that the clock rules.
    [[nodiscard]] std::vector<Call> Calls() const;
    // The milliseconds of each sleep, and of each wait.
    [[nodiscard]] std::vector<DWORD> Sleeps() const;
    [[nodiscard]] std::vector<DWORD> Waits() const;

  private:
    static void WINAPI RedirectedSleep(DWORD milliseconds);
    static ULONGLONG WINAPI RedirectedGetTickCount64();
    static DWORD WINAPI RedirectedWaitForSingleObject(HANDLE object, DWORD milliseconds);

    [[nodiscard]] bool RulesThisThread() const;
    void PassTime(ULONGLONG target, const std::function<bool()>& isOver);
    [[nodiscard]] DWORD Wait(HANDLE object, DWORD milliseconds);
    void Record(const Call& call);
    [[nodiscard]] std::vector<DWORD> Milliseconds(Call::Kind kind) const;

    Threads threads_;
    DWORD ownThread_;
    bool isOff_ = false;  // of that thread alone
    mutable std::mutex lock_;
    ULONGLONG now_;
    std::multimap<ULONGLONG, std::function<void()>> actions_;
    std::vector<Call> calls_;
    ImportRedirect sleep_;
    ImportRedirect getTickCount64_;
    ImportRedirect waitForSingleObject_;
};

}  // namespace test_support
