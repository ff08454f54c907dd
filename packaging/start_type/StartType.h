#pragma once

#include <windows.h>

#include <optional>
#include <string_view>

namespace start_type {

// When Windows starts a service, in the installer's words.
enum class StartType {
    kAutomatic,  // with Windows
    kDelayed,    // two minutes or so after Windows
    kManual,     // never by itself
    kDisabled,   // never
};

// The type that a word names: "Automatic", "Delayed", "Manual", "Disabled", in this case. None for any other.
[[nodiscard]] std::optional<StartType> StartTypeOf(std::wstring_view word);

// Gives an installed service its start type. kAutomatic takes a delay away. 0, or the Win32 code of the
// first call that failed: nothing is changed then, but for kDelayed, which may be left as kAutomatic.
[[nodiscard]] DWORD SetStartType(const wchar_t* service, StartType type);

}  // namespace start_type
