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

// One event's XML without the name of the computer that it is of, users' names in paths, the SIDs of persons'
// accounts, and the accounts that COM's refusals and newly installed services name, if they are not Windows'
// own.
[[nodiscard]] std::string EventWithoutPersons(std::string_view xml);

// A text without a word, wherever it stands by itself, in capitals or not; an empty word is nowhere.
[[nodiscard]] std::string WithoutWord(std::string_view text, std::string_view word);

}  // namespace check
