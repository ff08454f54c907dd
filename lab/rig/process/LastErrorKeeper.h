#pragma once

#include <windows.h>

namespace lab::rig {

// Gives the thread its last error back: what the rig does on the side must not show in what the product sees.
class LastErrorKeeper {
  public:
    LastErrorKeeper() : error_(GetLastError()) {}
    ~LastErrorKeeper() { SetLastError(error_); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

  private:
    const DWORD error_;
};

}  // namespace lab::rig
