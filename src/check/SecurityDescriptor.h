#pragma once

#include "check/AccessList.h"

#include <windows.h>

#include <optional>
#include <string>

namespace check {

// The owner and list of the file or folder at a path; empty when Windows does not tell, with the Win32 code
// in `error`.
[[nodiscard]] std::optional<AccessList> ReadFileAccess(const std::wstring& path, DWORD& error);

// The account's name, or the SID's own text for one that Windows does not know.
[[nodiscard]] std::string NameOfSid(const std::string& sidText);

}  // namespace check
