#pragma once

#include "check/Judgement.h"
#include "check/MachineState.h"

#include <string>
#include <string_view>

namespace check {

// What "status" says, for a person: lines that end with a line break.
[[nodiscard]] std::string StatusText(const MachineState& machine, const Judgement& judgement);

// The same for a program, one JSON object. `programVersion` is this program's own.
[[nodiscard]] std::string StatusJson(const MachineState& machine, const Judgement& judgement,
                                     std::string_view programVersion);

// The exit code that a verdict has: 0, 10, 20 or 30.
[[nodiscard]] int ExitCodeOf(Verdict verdict);

}  // namespace check
