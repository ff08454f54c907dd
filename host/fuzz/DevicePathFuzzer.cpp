#include "discovery/DevicePathMatching.h"
#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Promise.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <regex>
#include <string>
#include <vector>

// Device paths of any content and length, against the regular expressions that they stand for.
//
// Input: from 250 on, that the whole is repeated, and then how often (u8, times 16; paths grow beyond the
// 32,767 characters that Windows allows); the characters, a byte each. Bytes from 0x80 on stand for whole
// pieces of a path, and for characters that a byte does not hold.

namespace {

using fuzz::FuzzInput;
using fuzz::Promise;

// The library's matcher recurses for each character.
constexpr std::size_t kLongestForTheLibrary = 150;
constexpr std::size_t kLongest = 40000;

const std::vector<std::wstring>& Pieces() {
    static const std::vector<std::wstring> pieces{L"mi_",
                                                  L"mi_00#",
                                                  L"mi_02#",
                                                  L"mi_04#",
                                                  L"&0000#",
                                                  LR"(\\?\usb#)",
                                                  L"vid_2f1a",
                                                  L"&pid_7e01",
                                                  L"&pid_7e02",
                                                  L"MI_00#",
                                                  L"\u2028",
                                                  L"\u2029",
                                                  L"\u00c4",
                                                  L"\uffff",
                                                  LR"(#{a5dcbf10-6530-11d2-901f-00c04fb951ed})",
                                                  std::wstring(1, L'\0')};
    return pieces;
}

std::wstring PathFrom(FuzzInput& input) {
    const bool isRepeated = input.Byte() >= 250;
    const std::size_t repeats = 1 + (isRepeated ? std::size_t{input.Byte()} * 16 : 0);
    std::wstring once;
    for (const std::uint8_t byte : input.Rest()) {
        if (byte < 0x80) {
            once += static_cast<wchar_t>(byte);
        } else {
            once += Pieces()[byte % Pieces().size()];
        }
    }
    std::wstring path;
    for (std::size_t repeat = 0; repeat < repeats && path.size() + once.size() <= kLongest; ++repeat) {
        path += once;
    }
    return path;
}

// As the regular expression has it.
std::wstring InstancePart(const std::wstring& path) {
    static const std::wregex expression(L"mi_..#(.*)&....#");
    std::wsmatch match;
    return std::regex_search(path, match, expression) ? match[1].str() : std::wstring();
}

InterfaceKind Kind(const std::wstring& path) {
    static const std::wregex expression(L"mi_(..)#.*");
    std::wsmatch match;
    if (!std::regex_search(path, match, expression)) {
        return InterfaceKind::Other;
    }
    const std::wstring number = match[1].str();
    const long value = std::wcstol(number.c_str(), nullptr, 10);
    return value == 0   ? InterfaceKind::Interface00
           : value == 2 ? InterfaceKind::Interface02
           : value == 4 ? InterfaceKind::Interface04
                        : InterfaceKind::Other;
}

bool Contains(const std::wstring& path, const std::wstring& pattern) {
    return std::search(path.begin(), path.end(), pattern.begin(), pattern.end()) != path.end();
}

void Check(const std::wstring& path) {
    const std::wstring folded = ToLowerCopy(path);
    Promise(folded.size() == path.size() && ToLowerCopy(folded) == folded,
            "folding keeps the length, once is enough");
    Promise(
        std::none_of(folded.begin(), folded.end(), [](wchar_t each) { return each >= L'A' && each <= L'Z'; }),
        "nothing is left in upper case");

    const std::vector<DeviceFilter> filters{{L"vid_2f1a", L"pid_7e01", L""}, {L"vid_2f1a", L"pid_7e02", L""}};
    Promise(MatchesFilters(folded, filters) == (Contains(folded, LR"(\\?\usb#vid_2f1a&pid_7e01)") ||
                                                Contains(folded, LR"(\\?\usb#vid_2f1a&pid_7e02)")),
            "a path matches when it has a product's pattern in it");
    Promise(!MatchesFilters(folded, {}), "nothing matches no filter");

    const std::wstring part = ExtractInstancePart(folded);
    Promise(part.empty() || Contains(folded, L"#" + part + L"&"),
            "the instance part stands between its marks");
    const InterfaceKind kind = ExtractInterfaceKind(folded);
    if (folded.size() <= kLongestForTheLibrary) {
        Promise(part == InstancePart(folded), "the instance part is the expression's capture");
        Promise(kind == Kind(folded), "the interface kind is that of the expression's capture");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    Check(PathFrom(input));
    return 0;
}
