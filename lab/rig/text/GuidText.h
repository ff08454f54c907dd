#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace lab::rig {

// "{A5DCBF10-6530-11D2-901F-00C04FB951ED}": upper case, with braces.
[[nodiscard]] std::string GuidText(const GUID& guid);
// Reads that form, in either case; empty for anything else.
[[nodiscard]] std::optional<GUID> GuidFromText(const std::string& text);

}  // namespace lab::rig
