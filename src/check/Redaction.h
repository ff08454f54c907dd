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

// An event's XML without the computer's name, the user's SID, and users' names in paths.
[[nodiscard]] std::string EventWithoutPersons(std::string_view xml);

}  // namespace check
