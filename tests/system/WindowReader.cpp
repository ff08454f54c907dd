// Prints what a dialog of this title shows, a line each, in UTF-8 and in the pixels of the screen: "window
// LEFT TOP RIGHT BOTTOM", "text WORDS", "percent NUMBER", "button X Y WORDS" with the place of its middle.
// Ends with 1 when there is no such dialog.

#include <windows.h>

#include <commctrl.h>

#include <cstdio>
#include <cwchar>
#include <string>

namespace {

constexpr UINT kPatienceMs = 2000;

std::wstring ClassOf(HWND window) {
    wchar_t name[64] = L"";
    GetClassNameW(window, name, ARRAYSIZE(name));
    return name;
}

// Asked of the window itself: Windows tells other programs' texts from what it has kept.
std::wstring WordsOf(HWND window) {
    wchar_t words[2048] = L"";
    DWORD_PTR length = 0;
    if (SendMessageTimeoutW(window, WM_GETTEXT, ARRAYSIZE(words), reinterpret_cast<LPARAM>(words),
                            SMTO_ABORTIFHUNG, kPatienceMs, &length) == 0) {
        return {};
    }
    std::wstring text = words;
    for (wchar_t& letter : text) {
        letter = letter == L'\r' || letter == L'\n' ? L' ' : letter;
    }
    return text;
}

void Print(const char* what, const std::wstring& words) {
    char bytes[8192] = "";
    WideCharToMultiByte(CP_UTF8, 0, words.c_str(), -1, bytes, sizeof bytes, nullptr, nullptr);
    std::printf("%s %s\n", what, bytes);
}

BOOL CALLBACK PrintControl(HWND control, LPARAM) {
    if (!IsWindowVisible(control)) {
        return TRUE;
    }
    const std::wstring kind = ClassOf(control);
    if (kind == L"Static") {
        const std::wstring words = WordsOf(control);
        if (!words.empty()) {
            Print("text", words);
        }
    } else if (kind == L"Button") {
        RECT place{};
        GetWindowRect(control, &place);
        std::printf("button %ld %ld", (place.left + place.right) / 2, (place.top + place.bottom) / 2);
        Print("", WordsOf(control));
    } else if (kind == L"msctls_progress32") {
        DWORD_PTR percent = 0;
        SendMessageTimeoutW(control, PBM_GETPOS, 0, 0, SMTO_ABORTIFHUNG, kPatienceMs, &percent);
        std::printf("percent %lu\n", static_cast<unsigned long>(percent));
    }
    return TRUE;
}

}  // namespace

int wmain(int argc, wchar_t** arguments) {
    const HWND dialog = argc == 2 ? FindWindowW(L"#32770", arguments[1]) : nullptr;
    if (dialog == nullptr || !IsWindowVisible(dialog)) {
        return 1;
    }
    // Without its frame, which is the window manager's.
    RECT place{};
    GetClientRect(dialog, &place);
    MapWindowPoints(dialog, nullptr, reinterpret_cast<POINT*>(&place), 2);
    std::printf("window %ld %ld %ld %ld\n", place.left, place.top, place.right, place.bottom);
    EnumChildWindows(dialog, PrintControl, 0);
    return 0;
}
