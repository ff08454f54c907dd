#include "lab/rig/service/EventBurst.h"

#include <algorithm>
#include <chrono>

#include "lab/rig/service/BroadcastRecord.h"

namespace lab::rig {
namespace {

using Clock = std::chrono::steady_clock;

double Microseconds(Clock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

}  // namespace

BurstResult EventBurst::Deliver(LPHANDLER_FUNCTION_EX handler, void* context) const {
    auto record = BroadcastRecord(event);
    const std::chrono::nanoseconds period(std::chrono::nanoseconds(std::chrono::seconds(1)) / perSecond);
    Clock::duration handling{0};
    Clock::duration longest{0};
    const auto begin = Clock::now();
    auto end = begin;
    for (std::uint64_t number = 0; number < count; ++number) {
        // The system can wait by the millisecond only.
        auto now = Clock::now();
        while (now < begin + period * number) {
            YieldProcessor();
            now = Clock::now();
        }
        handler(SERVICE_CONTROL_DEVICEEVENT, event.type, record.data(), context);
        end = Clock::now();
        handling += end - now;
        longest = std::max(longest, end - now);
    }
    return {.events = count,
            .seconds = std::chrono::duration<double>(end - begin).count(),
            .handlingUs = Microseconds(handling) / static_cast<double>(std::max<std::uint64_t>(count, 1)),
            .longestUs = Microseconds(longest)};
}

}  // namespace lab::rig
