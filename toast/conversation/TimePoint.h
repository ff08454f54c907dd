#pragma once

#include <chrono>

namespace toast {

// A moment on the conversation's clock, which only ever goes on: since the computer's start, say.
using TimePoint = std::chrono::milliseconds;

}  // namespace toast
