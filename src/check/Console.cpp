#include "check/Console.h"

#include "check/Utf8.h"

#include <windows.h>

#include <algorithm>

namespace check {
namespace {

constexpr std::size_t kPieceLength = 8000;  // of a console's buffer

bool WriteToConsole(HANDLE console, std::string_view text) {
    const std::wstring wide = Wide(text);
    std::wstring_view rest = wide;
    while (!rest.empty()) {
        DWORD written = 0;
        const auto length = static_cast<DWORD>(std::min(rest.size(), kPieceLength));
        if (!WriteConsoleW(console, rest.data(), length, &written, nullptr) || written == 0) {
            return false;
        }
        rest.remove_prefix(written);
    }
    return true;
}

bool WriteToFile(HANDLE file, std::string_view rest) {
    while (!rest.empty()) {
        DWORD written = 0;
        const auto length = static_cast<DWORD>(std::min<std::size_t>(rest.size(), 1U << 20U));
        if (!WriteFile(file, rest.data(), length, &written, nullptr) || written == 0) {
            return false;
        }
        rest.remove_prefix(written);
    }
    return true;
}

bool Write(DWORD stream, std::string_view text) {
    const HANDLE handle = GetStdHandle(stream);
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) ? WriteToConsole(handle, text) : WriteToFile(handle, text);
}

}  // namespace

bool WriteOutput(std::string_view text) {
    return Write(STD_OUTPUT_HANDLE, text);
}

bool WriteError(std::string_view text) {
    return Write(STD_ERROR_HANDLE, text);
}

}  // namespace check
