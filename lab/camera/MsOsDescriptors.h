#pragma once

#include <cstdint>
#include <vector>

namespace lab {

// bRequest of the vendor request, and its wIndex, with which Windows asks for the set.
inline constexpr std::uint8_t kMsOsVendorCode = 0x4D;
inline constexpr std::uint16_t kMsOsSetIndex = 7;
// Windows 8.1, the first that asks.
inline constexpr std::uint32_t kMsOsWindowsVersion = 0x06030000;

// The MS OS 2.0 descriptors of DFU mode, for which Windows loads WinUSB on the whole device without a driver
// package, however many interfaces it has, and registers a device interface class of its own beside that of
// all USB devices.
[[nodiscard]] std::vector<std::uint8_t> MakeMsOsSet();

}  // namespace lab
