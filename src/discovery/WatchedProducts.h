#pragma once

// The product ids under which a camera of the family appears in DFU mode, in the order in which they are
// watched.

inline constexpr const wchar_t* kVendorText = L"vid_2f1a";
inline constexpr const wchar_t* kFirstDfuProductText = L"pid_7e01";
inline constexpr const wchar_t* kSecondDfuProductText = L"pid_7e02";

// Name of the watchers that live for one wait. The service's own, which lives as long as it, has a name of
// its own.
inline constexpr const wchar_t* kDfuDeviceWatcherName = L"DFU device watcher";
