#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Recognising and parsing the device-interface symbolic links of USB devices. All functions take links of any
// length and content; those that look into a link expect a folded one.

// One watched product, texts folded to lower case: "vid_2f1a", "pid_7e01". The third text is always empty.
struct DeviceFilter {
    std::wstring vendor;
    std::wstring product;
    std::wstring unused;
};

// Which interface of a composite device a link belongs to, by its interface number.
enum class InterfaceKind : std::int32_t {
    Interface00 = 0,
    Interface02 = 1,
    Interface04 = 2,
    // Every other number, odd ones among them, deliberately lumped together with links that carry none.
    Other = 4,
};

// One matching device that is present.
struct DeviceEntry {
    std::wstring symbolicLink;  // folded
    std::wstring instancePart;  // as ExtractInstancePart gives it
    InterfaceKind interfaceKind;
};

// Folds in place: passes every character through towlower.
void FoldToLower(std::span<wchar_t> text);

// A folded copy.
[[nodiscard]] std::wstring ToLowerCopy(std::wstring_view text);

// Whether any filter's pattern, the USB prefix with vendor and product, occurs anywhere in the link. A filter
// with an empty product matches every product of the vendor; no filters match nothing.
[[nodiscard]] bool MatchesFilters(std::wstring_view link, const std::vector<DeviceFilter>& filters);

// What the regular expression "mi_..#(.*)&....#" captures: everything after the interface number and "#", up
// to the last "&" that exactly four characters and "#" follow. Empty when it does not match, as for a
// single-interface device.
[[nodiscard]] std::wstring ExtractInstancePart(std::wstring_view link);

// The kind for the number that the regular expression "mi_(..)#.*" captures, read as _wtoi does.
[[nodiscard]] InterfaceKind ExtractInterfaceKind(std::wstring_view link);
