#pragma once

#include <time.h>

#include <chrono>

namespace test_support {

// The processor time that this thread has taken: what else the machine does is not in it.
[[nodiscard]] inline std::chrono::nanoseconds ProcessorTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace test_support
