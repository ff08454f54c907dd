#include "host/bench/BareRefresh.h"

#include <windows.h>
#include <cfgmgr32.h>

#include <algorithm>
#include <cwctype>
#include <string>
#include <string_view>
#include <vector>

namespace bench {
namespace {

constexpr std::wstring_view kPattern = L"\\\\?\\usb#vid_2f1a&pid_7e0";

std::vector<wchar_t> PresentInterfaces() {
    ULONG size = 0;
    CM_Get_Device_Interface_List_SizeW(&size, nullptr, nullptr, CM_GET_DEVICE_INTERFACE_LIST_PRESENT);
    std::vector<wchar_t> links(size);
    CM_Get_Device_Interface_ListW(nullptr, nullptr, links.data(), size, CM_GET_DEVICE_INTERFACE_LIST_PRESENT);
    return links;
}

}  // namespace

std::size_t RefreshBare() {
    const std::vector<wchar_t> links = PresentInterfaces();
    std::size_t found = 0;
    std::wstring folded;
    for (const wchar_t* link = links.data(); *link != L'\0'; link += folded.size() + 1) {
        folded.assign(link);
        std::transform(folded.begin(), folded.end(), folded.begin(), [](wchar_t character) {
            return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(character)));
        });
        found += std::wstring_view(folded).find(kPattern) != std::wstring_view::npos ? 1U : 0U;
    }
    return found;
}

}  // namespace bench
