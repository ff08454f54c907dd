#pragma once

#include "check/MachineState.h"

#include <string>
#include <string_view>

namespace check {

// The versions of Windows, of the programs, of the drivers' files and of the drivers that the vendor's
// devices have, a line each.
[[nodiscard]] std::string ListVersions(const MachineState& machine, std::string_view programVersion);

}  // namespace check
