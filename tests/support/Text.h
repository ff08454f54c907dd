#pragma once

#include <array>
#include <cstdio>
#include <sstream>
#include <string>
#include <string_view>

namespace test_support {

// What the fakes write about calls and their arguments.

// The values, one behind the other.
template <typename... Values>
[[nodiscard]] std::string Text(const Values&... values) {
    std::ostringstream text;
    (text << ... << values);
    return text.str();
}

// Plain ASCII as it is, "?" for every other character.
[[nodiscard]] inline std::string Narrow(std::wstring_view text) {
    std::string narrow;
    for (const wchar_t character : text) {
        narrow.push_back(character < 0x80 ? static_cast<char>(character) : '?');
    }
    return narrow;
}

// The same; "null" without a text.
[[nodiscard]] inline std::string NarrowOrNull(const wchar_t* text) {
    return text == nullptr ? "null" : Narrow(text);
}

// With at least so many digits.
[[nodiscard]] inline std::string Hex(unsigned long value, int digits = 1) {
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%0*lX", digits, value);
    return text.data();
}

// Each byte in two digits, with blanks between.
[[nodiscard]] inline std::string HexBytes(const void* data, std::size_t size) {
    std::string text;
    for (const char byte : std::string_view(static_cast<const char*>(data), size)) {
        text += (text.empty() ? "" : " ") + Hex(static_cast<unsigned char>(byte), 2);
    }
    return text;
}

[[nodiscard]] inline const char* NullOrNot(const void* pointer) {
    return pointer == nullptr ? "null" : "not null";
}

// The bytes of a text as the registry takes them, without and with its terminator.
[[nodiscard]] inline std::string Bytes(std::wstring_view text) {
    return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)};
}
[[nodiscard]] inline std::string TerminatedBytes(const std::wstring& text) {
    return Bytes({text.c_str(), text.size() + 1});
}

}  // namespace test_support
