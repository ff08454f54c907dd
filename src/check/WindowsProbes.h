#pragma once

#include "check/Probe.h"

#include <vector>

namespace check {

// Asks the Windows that runs about each contract of docs/windows.md, in their order, and says of those that
// cannot be asked why. Changes nothing but this process, whose COM it sets up: to be called once, with COM
// not yet initialised.
[[nodiscard]] std::vector<Probe> AskWindows();

}  // namespace check
