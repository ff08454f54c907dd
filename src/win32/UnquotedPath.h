#pragma once

#include <string>

namespace win32 {

// A copy of a path without the pair of double quotes around it; a path that has a quote at one end only is
// copied as it is. A path that is one single double quote raises std::out_of_range "invalid string position":
// its one character is both quotes, and removing the first leaves no second.
[[nodiscard]] std::wstring UnquotedPath(const wchar_t* path);

}  // namespace win32
