#include "lab/wire/Utf8.h"

#include <windows.h>

namespace lab {
namespace {

std::wstring Widen(UINT codePage, std::string_view text) {
    const int size = static_cast<int>(text.size());
    const int length = MultiByteToWideChar(codePage, 0, text.data(), size, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(codePage, 0, text.data(), size, result.data(), length);
    return result;
}

}  // namespace

std::string Utf8(std::wstring_view text) {
    const int size = static_cast<int>(text.size());
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), size, result.data(), length, nullptr, nullptr);
    return result;
}

std::wstring WideFromUtf8(std::string_view text) {
    return Widen(CP_UTF8, text);
}

std::string Utf8FromAnsi(std::string_view text) {
    return Utf8(Widen(CP_ACP, text));
}

}  // namespace lab
