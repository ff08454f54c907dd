#pragma once

#include <windows.h>

#include <initializer_list>
#include <string>

namespace toast {

// The texts in this program's resources, in one language.
class Texts {
  public:
    // The user's language, or English where there are no texts in it.
    Texts() = default;
    // That language alone.
    explicit Texts(LANGID language) : language_(language) {}

    // The text of TextIds.h with its inserts. These are taken as they are, whatever stands in them. Empty
    // when the language has no such text.
    [[nodiscard]] std::wstring Text(UINT id, std::initializer_list<std::wstring> inserts = {}) const;

  private:
    [[nodiscard]] std::wstring Message(UINT id) const;

    LANGID language_ = MAKELANGID(LANG_NEUTRAL, SUBLANG_NEUTRAL);
};

}  // namespace toast
