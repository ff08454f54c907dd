#pragma once

#include "check/MachineState.h"

#include <string>
#include <string_view>
#include <vector>

// What takes persons out of what is collected.

namespace check {

// The names of users in paths: "\Users\anna\x" becomes "\Users\...\x".
[[nodiscard]] std::string WithoutUserNames(std::string_view text);

// An account's name as it is if it is Windows' own, "another account" otherwise.
[[nodiscard]] std::string WithoutPerson(const std::string& account);

// A text without users' SIDs, users' names in paths, and the names, which are those of the computer and of
// its domain: whole words in any case, with the account or the share behind it ("PC7\anna"); a path goes on
// behind a folder of that name. Empty names are passed over; one of one or two letters is taken out before an
// account and a share alone, since it may be a word or a drive.
[[nodiscard]] std::string WithoutTraces(std::string_view text, const std::vector<std::string>& names = {});

// A machine's state without the accounts of persons, and its paths without such traces.
[[nodiscard]] MachineState WithoutPersons(MachineState machine, const std::vector<std::string>& names = {});

// An event's XML without its computer, without such traces between its tags, and without the account that a
// refused start (10016) or a new service (7045) is of, unless it is Windows' own.
[[nodiscard]] std::string EventWithoutPersons(std::string_view xml,
                                              const std::vector<std::string>& names = {});

}  // namespace check
