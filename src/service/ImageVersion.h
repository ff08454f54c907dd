#pragma once

#include <array>
#include <cstdint>
#include <string>

// The firmware version that an image file carries: four bytes at offset 398, least significant first. The
// only bytes of an image that are looked at.

enum class ImageVersionRead { Done, NotOpened, NotRead };

// Reads the version's bytes into `version`, which is left alone unless Done. NotRead for a file that ends
// before them.
[[nodiscard]] ImageVersionRead ReadImageVersionBytes(const std::wstring& imagePath,
                                                     std::array<std::uint8_t, 4>& version);
