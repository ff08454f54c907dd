#include "win32/VersionText.h"

namespace win32 {

std::wstring VersionText(std::span<const std::uint8_t, 4> bytes) {
    return std::to_wstring(bytes[3]) + L"." + std::to_wstring(bytes[2]) + L"." + std::to_wstring(bytes[1]) +
           L"." + std::to_wstring(bytes[0]);
}

}  // namespace win32
