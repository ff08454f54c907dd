#pragma once

#include <string>
#include <string_view>

namespace win32 {

// A narrow copy of a wide text for the diagnostic channels and command lines, character by character: each
// keeps its low byte. Meant for texts that are plain ASCII by construction (versions, device paths, service
// names).
[[nodiscard]] std::string NarrowText(std::wstring_view text);

}  // namespace win32
