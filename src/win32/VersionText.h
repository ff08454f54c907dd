#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace win32 {

// The text of a firmware version that is stored as four bytes, least significant first: four unsigned decimal
// numbers, the last byte's first, joined by ".". Versions are only ever compared as these texts, for exact
// equality.
[[nodiscard]] std::wstring VersionText(std::span<const std::uint8_t, 4> bytes);

}  // namespace win32
