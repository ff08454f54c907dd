#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>

namespace check {

// Keeps Ctrl+C, Ctrl+Break and the closing of the console from ending the process while there is something to
// clean up: they are told here instead. A console that closes, a log-off and a shutdown wait, for at most 4
// s, until the object is gone; then Windows ends the process. One at a time.
class EndSignal {
  public:
    EndSignal();
    ~EndSignal();

    EndSignal(const EndSignal&) = delete;
    EndSignal& operator=(const EndSignal&) = delete;

    // Waits for so many seconds, or without them until Enter or the end of standard input; in both cases no
    // longer than until Ctrl+C, Ctrl+Break or the closing of the console. To be called once.
    void Wait(std::optional<std::uint32_t> seconds);

    // Whether there is no use in going on: the console closes, or Ctrl+C came outside the wait.
    [[nodiscard]] static bool IsToGiveUp();

    // What Windows calls, on a thread of its own, with the kind of event.
    static BOOL WINAPI OnConsoleControl(DWORD kind);
};

}  // namespace check
