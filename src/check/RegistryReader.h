#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace check {

// Reads values below HKEY_LOCAL_MACHINE, and writes nothing. Each call opens the key anew.
class RegistryReader {
  public:
    struct Value {
        LSTATUS error = ERROR_SUCCESS;  // ERROR_FILE_NOT_FOUND when there is no key or no value
        DWORD type = REG_NONE;
        std::vector<std::uint8_t> data;

        // What there is of a text, up to its terminator; empty for another type.
        [[nodiscard]] std::wstring Text() const;
        // The same with the variables of the environment filled in, for what Windows keeps so.
        [[nodiscard]] std::wstring Expanded() const;
        // Of a REG_DWORD; 0 for another type.
        [[nodiscard]] DWORD Number() const;
    };

    // `name` may be empty for the key's default value.
    [[nodiscard]] static Value Read(const std::wstring& key, const std::wstring& name);
    // A text with the variables of the environment filled in: "%SystemRoot%\x".
    [[nodiscard]] static std::wstring Expand(const std::wstring& text);
    // ERROR_SUCCESS when the key can be opened for reading.
    [[nodiscard]] static LSTATUS Open(const std::wstring& key);
    // The names of the keys below a key; none when it cannot be read.
    [[nodiscard]] static std::vector<std::wstring> SubKeys(const std::wstring& key);
};

}  // namespace check
