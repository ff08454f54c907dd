#include "toast/conversation/StatusLine.h"

#include "toast/conversation/DecimalNumber.h"

namespace toast {

StatusLine StatusLineOf(std::wstring_view text) {
    constexpr std::wstring_view kStart = L"start:";
    const bool isStart = text.starts_with(kStart);
    const auto number = DecimalNumber(isStart ? text.substr(kStart.size()) : text);
    if (!number) {
        return {};
    }
    return isStart ? StatusLine(DownloadStart{*number}) : StatusLine(BlocksTaken{*number});
}

}  // namespace toast
