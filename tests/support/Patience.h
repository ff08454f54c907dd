#pragma once

#include <chrono>

namespace test_support {

// How long a test waits for what must happen. Only one that fails waits so long: a busy machine turns none
// red.
inline constexpr std::chrono::milliseconds kPatience = std::chrono::minutes(1);
inline constexpr auto kPatienceMs = static_cast<unsigned long>(kPatience.count());

// How long a test watches for what must not happen.
inline constexpr std::chrono::milliseconds kWatchTime{100};

}  // namespace test_support
