#pragma once

#include <cstdint>

namespace test_support {

// The standard's numbers of DFU requests and states, kept apart from the program's.
inline constexpr std::uint8_t kDetach = 0;
inline constexpr std::uint8_t kDnload = 1;
inline constexpr std::uint8_t kUpload = 2;
inline constexpr std::uint8_t kGetStatus = 3;
inline constexpr std::uint8_t kGetState = 5;

inline constexpr std::uint8_t kIdle = 2;
inline constexpr std::uint8_t kDownloadIdle = 5;
inline constexpr std::uint8_t kManifestWaitReset = 8;

}  // namespace test_support
