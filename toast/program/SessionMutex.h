#pragma once

#include <windows.h>

#include <chrono>

#include "win32/UniqueHandle.h"

namespace toast {

// Held by the one process of a session that offers the class; a process that ends in any way gives it back.
// Taken and given back by the same thread.
class SessionMutex {
  public:
    // Waits for a process that is just leaving.
    SessionMutex(const wchar_t* name, std::chrono::milliseconds patience);
    ~SessionMutex();

    SessionMutex(const SessionMutex&) = delete;
    SessionMutex& operator=(const SessionMutex&) = delete;

    // False when another process kept it, or it could not be made.
    [[nodiscard]] bool IsHeld() const { return isHeld_; }

  private:
    const win32::UniqueKernelHandle mutex_;
    const bool isHeld_;
};

}  // namespace toast
