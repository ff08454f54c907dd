#include "win32/NarrowText.h"

#include <algorithm>
#include <iterator>

namespace win32 {

std::string NarrowText(std::wstring_view text) {
    std::string narrow;
    narrow.reserve(text.size());
    std::transform(text.begin(), text.end(), std::back_inserter(narrow),
                   [](wchar_t character) { return static_cast<char>(character); });
    return narrow;
}

}  // namespace win32
