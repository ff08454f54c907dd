#include <windows.h>

#include <chrono>

#include <nlohmann/json.hpp>

#include "lab/rig/process/ImportTable.h"
#include "lab/rig/process/LastErrorKeeper.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"

namespace lab::rig {
namespace {

decltype(&::Sleep) sleep = nullptr;
decltype(&::GetTickCount64) getTickCount = nullptr;
// What the clock shows when the run begins: some days, as on a machine that has run for a while.
constexpr ULONGLONG kTicksAtBegin = 500'000'000;
decltype(&::WaitForSingleObject) waitForSingleObject = nullptr;

// The rig, which is told that the calling thread waits and whose clock that moves instead of waiting, if it
// skips waits; null for every other thread: all of the service's waits but that for its user are made by the
// handler of its controls.
Rig* RigOfHandler() {
    Rig* const rig = Rig::IfConnected();
    if (rig == nullptr || !rig->Controls().IsHandlingHere()) {
        return nullptr;
    }
    rig->TheBus().ServiceWaits(rig->Controls().HandledArrival());
    return rig->Settings().bus.skipsWaits ? rig : nullptr;
}

void SkipRecorded(Rig& rig, DWORD ms) {
    if (ms != 0) {
        rig.Record({{"event", "wait"}, {"ms", ms}});
    }
    rig.TheBus().Skip(ms);
}

// Where waits are skipped, a rest of the machine may go over it.
void SleepBesideHandler(DWORD ms) {
    Rig* const rig = Rig::IfConnected();
    if (rig == nullptr || !rig->Settings().bus.skipsWaits || ms == 0 || ms == INFINITE) {
        sleep(ms);
        return;
    }
    const LastErrorKeeper keeper;
    rig->TheRest().Sleep(std::chrono::milliseconds(ms));
}

void WINAPI SleepOrSkip(DWORD ms) {
    Rig* const rig = RigOfHandler();
    if (rig == nullptr || ms == INFINITE) {
        SleepBesideHandler(ms);
        return;
    }
    SkipRecorded(*rig, ms);
    sleep(0);
}

ULONGLONG WINAPI TickCountOfRun() {
    Rig* const rig = Rig::IfConnected();
    return rig != nullptr ? kTicksAtBegin + rig->TheBus().ClockMs() : getTickCount();
}

DWORD WINAPI WaitOrSkip(HANDLE object, DWORD ms) {
    Rig* const rig = ms != 0 && ms != INFINITE ? RigOfHandler() : nullptr;
    if (rig == nullptr) {
        return waitForSingleObject(object, ms);
    }
    const DWORD result = waitForSingleObject(object, 0);
    if (result != WAIT_TIMEOUT) {
        return result;
    }
    SkipRecorded(*rig, ms);
    return waitForSingleObject(object, 0);
}

}  // namespace

void RedirectTime() {
    Redirect("Sleep", &SleepOrSkip, sleep);
    Redirect("GetTickCount64", &TickCountOfRun, getTickCount);
    Redirect("WaitForSingleObject", &WaitOrSkip, waitForSingleObject);
}

}  // namespace lab::rig
