#pragma once

#include <string>
#include <string_view>

namespace toast {

// A caller's text as a person may be shown it: one line of at most 40 characters, an ellipsis the last when
// there were more. Control characters, invisible marks (those that turn the direction of writing among them)
// and halves of surrogate pairs are left out, and blanks at both ends. An ampersand, which a window may take
// for the mark of a key, becomes the full-width one. A text with letters that are written from right to left
// is isolated, so that the words around it stay in order. However long the text is, only its first 1024 code
// units are looked at.
[[nodiscard]] std::wstring ShownText(std::wstring_view text);

}  // namespace toast
