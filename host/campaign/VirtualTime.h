#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <functional>
#include <utility>

namespace campaign {

// Time that passes when the service waits, and not otherwise. While it lives, Sleep, GetTickCount64 and timed
// WaitForSingleObject go to it: a wait for what is not signalled takes its time-out at once. One at a time,
// for one thread.
class VirtualTime : public test_support::OnlyOne<VirtualTime> {
  public:
    static constexpr ULONGLONG kBegin = 5000;

    VirtualTime();

    [[nodiscard]] ULONGLONG Now() const { return now_; }
    void Advance(ULONGLONG milliseconds);
    // Runs whenever time has passed.
    void OnAdvance(std::function<void(ULONGLONG now)> listener) { listener_ = std::move(listener); }

  private:
    static void WINAPI RedirectedSleep(DWORD milliseconds);
    static ULONGLONG WINAPI RedirectedGetTickCount64();
    static DWORD WINAPI RedirectedWait(HANDLE object, DWORD milliseconds);

    ULONGLONG now_ = kBegin;
    std::function<void(ULONGLONG)> listener_;
    test_support::ImportRedirect sleep_;
    test_support::ImportRedirect getTickCount64_;
    test_support::ImportRedirect wait_;
};

}  // namespace campaign
