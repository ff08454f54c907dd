#pragma once

#include <string>
#include <string_view>

namespace lab {

// Wide text as UTF-8 and back; what has no counterpart becomes the replacement character.
[[nodiscard]] std::string Utf8(std::wstring_view text);
[[nodiscard]] std::wstring WideFromUtf8(std::string_view text);
// Narrow text of the process's own code page.
[[nodiscard]] std::string Utf8FromAnsi(std::string_view text);

}  // namespace lab
