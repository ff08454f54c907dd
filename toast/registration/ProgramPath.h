#pragma once

#include <string>

namespace toast {

// The full path of this program's file, whatever its length. Empty when Windows does not tell it.
[[nodiscard]] std::wstring ProgramPath();

}  // namespace toast
