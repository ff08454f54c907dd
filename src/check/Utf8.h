#pragma once

#include <string>
#include <string_view>

namespace check {

// Between Windows' texts and UTF-8. What is no text in the one becomes the replacement character in the
// other.
[[nodiscard]] std::string Utf8(std::wstring_view text);
[[nodiscard]] std::wstring Wide(std::string_view text);

}  // namespace check
