#pragma once

#include "tests/support/ImportRedirect.h"

#include <windows.h>

namespace bench {

// Time that stands still: GetTickCount64 always answers kNow, and a Sleep throws std::logic_error, because
// nothing that is measured may wait. Cheap enough to be called by what is measured. For one thread.
class StillClock {
  public:
    static constexpr ULONGLONG kNow = 5000;

    StillClock();

  private:
    test_support::ImportRedirect getTickCount64_;
    test_support::ImportRedirect sleep_;
};

}  // namespace bench
