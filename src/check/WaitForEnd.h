#pragma once

#include <cstdint>
#include <optional>

namespace check {

// Waits for so many seconds, or without them until Enter or the end of standard input; in both cases no
// longer than until Ctrl+C, Ctrl+Break or the closing of the console. To be called once.
void WaitForEnd(std::optional<std::uint32_t> seconds);

}  // namespace check
