#include "win32/UnquotedPath.h"

#include <stdexcept>

namespace win32 {

std::wstring UnquotedPath(const wchar_t* path) {
    std::wstring unquoted(path);
    if (unquoted.empty() || unquoted.front() != L'"' || unquoted.back() != L'"') {
        return unquoted;
    }
    unquoted.erase(0, 1);
    if (unquoted.empty()) {
        throw std::out_of_range("invalid string position");
    }
    unquoted.pop_back();
    return unquoted;
}

}  // namespace win32
