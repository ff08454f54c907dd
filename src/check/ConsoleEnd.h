#pragma once

#include <cstdint>
#include <optional>

namespace check {

// The end of what goes on until the user says so. While there is one, Ctrl+C and Ctrl+Break do not end the
// program, and the closing of its console does so only after this object is gone, or after 4 s: Windows waits
// no longer. There may be one in a program.
class ConsoleEnd {
  public:
    ConsoleEnd();
    ~ConsoleEnd();

    ConsoleEnd(const ConsoleEnd&) = delete;
    ConsoleEnd& operator=(const ConsoleEnd&) = delete;

    // Waits for so many seconds, or without them until Enter or the end of standard input; in both cases no
    // longer than until Ctrl+C, Ctrl+Break or the closing of the console, also if that was before. False when
    // the console was closed. To be called once.
    [[nodiscard]] bool Wait(std::optional<std::uint32_t> seconds);
};

}  // namespace check
