#pragma once

#include <string_view>

namespace check {

// Writes UTF-8 to standard output, or standard error: as it is to a file or a pipe, in Windows' own form to a
// console, whatever its code page. False when it could not be written whole.
bool WriteOutput(std::string_view text);
bool WriteError(std::string_view text);

}  // namespace check
