#include "tests/support/FakeClock.h"

#include <algorithm>
#include <utility>

namespace test_support {
namespace {

constexpr ULONGLONG kStart = 0xFFFFFF00;

bool Never() {
    return false;
}

}  // namespace

FakeClock::FakeClock(Threads threads)
    : threads_(threads),
      ownThread_(GetCurrentThreadId()),
      now_(kStart),
      sleep_("Sleep", &RedirectedSleep),
      getTickCount64_("GetTickCount64", &RedirectedGetTickCount64),
      waitForSingleObject_("WaitForSingleObject", &RedirectedWaitForSingleObject) {}

ULONGLONG FakeClock::Now() const {
    const std::scoped_lock guard(lock_);
    return now_;
}

ULONGLONG FakeClock::Elapsed() const {
    return Now() - kStart;
}

void FakeClock::Advance(ULONGLONG milliseconds) {
    PassTime(Now() + milliseconds, Never);
}

void FakeClock::After(ULONGLONG milliseconds, std::function<void()> action) {
    const std::scoped_lock guard(lock_);
    actions_.emplace(now_ + milliseconds, std::move(action));
}

std::vector<FakeClock::Call> FakeClock::Calls() const {
    const std::scoped_lock guard(lock_);
    return calls_;
}

std::vector<DWORD> FakeClock::Sleeps() const {
    return Milliseconds(Call::Kind::Sleep);
}

std::vector<DWORD> FakeClock::Waits() const {
    return Milliseconds(Call::Kind::Wait);
}

std::vector<DWORD> FakeClock::Milliseconds(Call::Kind kind) const {
    std::vector<DWORD> milliseconds;
    for (const Call& call : Calls()) {
        if (call.kind == kind) {
            milliseconds.push_back(call.milliseconds);
        }
    }
    return milliseconds;
}

bool FakeClock::RulesThisThread() const {
    const bool isOwn = GetCurrentThreadId() == ownThread_;
    return isOwn ? !isOff_ : threads_ == Threads::All;
}

void FakeClock::InRealTime(const std::function<void()>& act) {
    isOff_ = true;
    act();
    isOff_ = false;
}

// Moves the clock to `target`, from action to action; stops early when `isOver` says so after an action.
void FakeClock::PassTime(ULONGLONG target, const std::function<bool()>& isOver) {
    while (true) {
        std::function<void()> action;
        {
            const std::scoped_lock guard(lock_);
            const auto next = actions_.begin();
            if (next == actions_.end() || next->first > target) {
                now_ = std::max(now_, target);
                return;
            }
            now_ = std::max(now_, next->first);
            action = std::move(next->second);
            actions_.erase(next);
        }
        action();
        if (isOver()) {
            return;
        }
    }
}

DWORD FakeClock::Wait(HANDLE object, DWORD milliseconds) {
    const auto realWait = waitForSingleObject_.Original<decltype(::WaitForSingleObject)>();
    DWORD result = realWait(object, 0);
    if (result == WAIT_TIMEOUT) {
        PassTime(Now() + milliseconds, [&] {
            result = realWait(object, 0);
            return result != WAIT_TIMEOUT;
        });
    }
    return result;
}

void FakeClock::Record(const Call& call) {
    const std::scoped_lock guard(lock_);
    calls_.push_back(call);
}

void WINAPI FakeClock::RedirectedSleep(DWORD milliseconds) {
    FakeClock& clock = *current_;
    const auto realSleep = clock.sleep_.Original<decltype(::Sleep)>();
    if (!clock.RulesThisThread() || milliseconds == INFINITE) {
        realSleep(milliseconds);
        return;
    }
    const ULONGLONG start = clock.Now();
    clock.PassTime(start + milliseconds, Never);
    clock.Record(Call{Call::Kind::Sleep, milliseconds, nullptr, 0, start});
    if (GetCurrentThreadId() != clock.ownThread_) {
        realSleep(1);
    }
}

ULONGLONG WINAPI FakeClock::RedirectedGetTickCount64() {
    return current_->Now();
}

DWORD WINAPI FakeClock::RedirectedWaitForSingleObject(HANDLE object, DWORD milliseconds) {
    FakeClock& clock = *current_;
    if (milliseconds == INFINITE || !clock.RulesThisThread()) {
        return clock.waitForSingleObject_.Original<decltype(::WaitForSingleObject)>()(object, milliseconds);
    }
    const ULONGLONG start = clock.Now();
    const DWORD result = clock.Wait(object, milliseconds);
    clock.Record(Call{Call::Kind::Wait, milliseconds, object, result, start});
    if (GetCurrentThreadId() != clock.ownThread_) {
        clock.sleep_.Original<decltype(::Sleep)>()(1);
    }
    return result;
}

}  // namespace test_support
