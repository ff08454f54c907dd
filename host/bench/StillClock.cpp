#include "host/bench/StillClock.h"

#include <stdexcept>

namespace bench {
namespace {

ULONGLONG WINAPI Now() {
    return StillClock::kNow;
}

void WINAPI RefuseSleep(DWORD) {
    throw std::logic_error("something sleeps in what is measured");
}

}  // namespace

StillClock::StillClock() : getTickCount64_("GetTickCount64", &Now), sleep_("Sleep", &RefuseSleep) {}

}  // namespace bench
