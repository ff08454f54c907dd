#include "lab/rig/bus/DeviceLinks.h"

#include <algorithm>
#include <cwctype>

namespace lab::rig {
namespace {

constexpr wchar_t kUsbDevice[] = L"#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

// Behind the camera's number, which is in the instance's name.
void Pad(std::wstring& link, const std::wstring& number, std::size_t length) {
    const std::size_t missing = length > link.size() ? length - link.size() : 0;
    link.insert(link.find(L'#', link.find(number)), missing, L'0');
}

}  // namespace

DeviceLinks::DeviceLinks(std::size_t camera, const LinkStyle& style) {
    std::wstring number = std::to_wstring(camera + 1);
    number.insert(0, number.size() < 4 ? 4 - number.size() : 0, L'0');
    const std::wstring videoFunction = LR"(\\?\usb#vid_2f1a&pid_7e00&mi_00#6&2b7e)" + number + L"&0&0000#";

    runningUsb_ = LR"(\\?\usb#vid_2f1a&pid_7e00#kv400)" + number + kUsbDevice;
    sensorCamera_ = videoFunction + LR"({24e552d7-6523-47f7-a647-d3465bf1f5ca}\global)";
    videoCamera_ = videoFunction + LR"({e5323777-f976-4f5b-9b55-b94699c46e44}\global)";
    capture_ = videoFunction + LR"({65e8773d-8f56-11d0-a3b9-00a0c9223196}\global)";
    dfuUsb_ = LR"(\\?\USB#VID_2F1A&PID_7E01#KV400)" + number + kUsbDevice;
    for (std::wstring* const link : {&runningUsb_, &sensorCamera_, &videoCamera_, &capture_, &dfuUsb_}) {
        Pad(*link, number, style.length);
    }
}

std::wstring Announced(std::wstring link, LinkStyle::Case style) {
    bool toUpper = style == LinkStyle::Case::Upper;
    for (wchar_t& character : link) {
        if (style != LinkStyle::Case::AsWindows) {
            character = static_cast<wchar_t>(toUpper ? towupper(character) : towlower(character));
        }
        toUpper = style == LinkStyle::Case::Mixed ? !toUpper : toUpper;
    }
    return link;
}

bool SameLink(std::wstring_view left, std::wstring_view right) {
    return std::ranges::equal(left, right, {}, towlower, towlower);
}

}  // namespace lab::rig
