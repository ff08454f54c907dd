#include "discovery/DevicePathMatching.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <optional>

// The two extractions are searches for a regular expression, written out by hand: the standard library's
// matcher recurses for each character and overflows the stack on a long link, and a link may have 32,767
// characters. Their grammar is the default one, in which a dot stands for any character but a line break.

namespace {

constexpr std::wstring_view kUsbPrefix = L"\\\\?\\usb#";
constexpr std::wstring_view kInterfaceMark = L"mi_";
constexpr std::wstring_view kLineBreaks = L"\n\r\u2028\u2029";
constexpr std::size_t kNumberLength = 2;
constexpr std::size_t kTailGap = 4;  // characters between "&" and "#" behind the instance part

bool HasLineBreak(std::wstring_view text) {
    return text.find_first_of(kLineBreaks) != std::wstring_view::npos;
}

// The position behind the first "mi_..#" at or after `from`.
std::optional<std::size_t> FindBehindInterfaceNumber(std::wstring_view link, std::size_t from) {
    for (std::size_t mark = link.find(kInterfaceMark, from); mark != std::wstring_view::npos;
         mark = link.find(kInterfaceMark, mark + 1)) {
        const std::size_t number = mark + kInterfaceMark.size();
        const std::size_t end = number + kNumberLength;
        if (end < link.size() && link[end] == L'#' && !HasLineBreak(link.substr(number, kNumberLength))) {
            return end + 1;
        }
    }
    return std::nullopt;
}

// The longest capture of "(.*)&....#" at the start of `line`, which holds no line break.
std::optional<std::wstring_view> LongestCaptureBeforeTail(std::wstring_view line) {
    std::size_t tail = line.rfind(L'&');
    while (tail != std::wstring_view::npos) {
        const std::size_t mark = tail + 1 + kTailGap;
        if (mark < line.size() && line[mark] == L'#') {
            return line.substr(0, tail);
        }
        tail = tail == 0 ? std::wstring_view::npos : line.rfind(L'&', tail - 1);
    }
    return std::nullopt;
}

// Whether vendor and product, as the filter has them, stand at the start of `names`.
bool StartsWithProduct(std::wstring_view names, const DeviceFilter& filter) {
    if (!names.starts_with(filter.vendor)) {
        return false;
    }
    const std::wstring_view behindVendor = names.substr(filter.vendor.size());
    return filter.product.empty() ||
           (behindVendor.starts_with(L'&') && behindVendor.substr(1).starts_with(filter.product));
}

}  // namespace

void FoldToLower(std::span<wchar_t> text) {
    std::transform(text.begin(), text.end(), text.begin(), [](wchar_t character) {
        return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(character)));
    });
}

std::wstring ToLowerCopy(std::wstring_view text) {
    std::wstring folded(text);
    FoldToLower(folded);
    return folded;
}

bool MatchesFilters(std::wstring_view link, const std::vector<DeviceFilter>& filters) {
    for (std::size_t prefix = link.find(kUsbPrefix); prefix != std::wstring_view::npos;
         prefix = link.find(kUsbPrefix, prefix + 1)) {
        const std::wstring_view names = link.substr(prefix + kUsbPrefix.size());
        if (std::any_of(filters.begin(), filters.end(),
                        [names](const DeviceFilter& filter) { return StartsWithProduct(names, filter); })) {
            return true;
        }
    }
    return false;
}

std::wstring ExtractInstancePart(std::wstring_view link) {
    auto start = FindBehindInterfaceNumber(link, 0);
    while (start) {
        const std::size_t lineEnd = std::min(link.find_first_of(kLineBreaks, *start), link.size());
        if (const auto capture = LongestCaptureBeforeTail(link.substr(*start, lineEnd - *start))) {
            return std::wstring(*capture);
        }
        // A later start in the same line would find no tail either.
        start = FindBehindInterfaceNumber(link, lineEnd);
    }
    return {};
}

InterfaceKind ExtractInterfaceKind(std::wstring_view link) {
    const auto behindNumber = FindBehindInterfaceNumber(link, 0);
    if (!behindNumber) {
        return InterfaceKind::Other;
    }
    const std::wstring number(link.substr(*behindNumber - 1 - kNumberLength, kNumberLength));
    switch (_wtoi(number.c_str())) {
        case 0:
            return InterfaceKind::Interface00;
        case 2:
            return InterfaceKind::Interface02;
        case 4:
            return InterfaceKind::Interface04;
        default:
            return InterfaceKind::Other;
    }
}
