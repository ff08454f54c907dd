#pragma once

#include "check/MachineState.h"

#include <string>
#include <string_view>

// What takes persons out of what is collected.

namespace check {

// The names of users in paths: "\Users\anna\x" becomes "\Users\...\x".
[[nodiscard]] std::string WithoutUserNames(std::string_view text);

// An account's name as it is if it is Windows' own, "another account" otherwise.
[[nodiscard]] std::string WithoutPerson(const std::string& account);

// The same for all that a machine's state says.
[[nodiscard]] MachineState WithoutPersons(MachineState machine);

// An event's XML without the computer's name, which may be empty, users' SIDs, users' names in paths, and the
// account that a refused start (10016) or a new service (7045) is of, unless it is Windows' own.
[[nodiscard]] std::string EventWithoutPersons(std::string_view xml, std::string_view computer = {});

}  // namespace check
