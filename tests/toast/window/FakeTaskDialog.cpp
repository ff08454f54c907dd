#include "tests/toast/window/FakeTaskDialog.h"

#include <span>
#include <utility>

namespace {

constexpr std::chrono::seconds kPatience{10};
constexpr wchar_t kClass[] = L"FakeTaskDialog";

FakeTaskDialog* theDialog = nullptr;

std::wstring TextOf(const wchar_t* text) {
    return text == nullptr ? std::wstring() : std::wstring(text);
}

}  // namespace

FakeTaskDialog::FakeTaskDialog() {
    theDialog = this;
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = &FakeTaskDialog::Received;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = kClass;
    RegisterClassW(&windowClass);
}

FakeTaskDialog::~FakeTaskDialog() {
    theDialog = nullptr;
}

void FakeTaskDialog::Refuse(std::optional<HRESULT> result, std::function<void()> action) {
    Update([&] {
        refusal_ = result;
        whenRefused_ = std::move(action);
    });
}

bool FakeTaskDialog::Shows(const std::function<bool(const Shown&)>& condition) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return dialog_ != nullptr && condition(shown_); });
}

bool FakeTaskDialog::ShowsInstruction(const std::wstring& instruction) {
    return Shows([&](const Shown& shown) { return shown.instruction == instruction; });
}

bool FakeTaskDialog::Closes() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return dialog_ == nullptr; });
}

FakeTaskDialog::Shown FakeTaskDialog::Last() {
    const std::lock_guard lock(mutex_);
    return shown_;
}

int FakeTaskDialog::Calls() {
    const std::lock_guard lock(mutex_);
    return runs_;
}

void FakeTaskDialog::Press(int button) {
    HWND dialog = nullptr;
    Update([&] { dialog = dialog_; });
    SendMessageW(dialog, TDM_CLICK_BUTTON, static_cast<WPARAM>(button), 0);
}

void FakeTaskDialog::Destroy() {
    HWND dialog = nullptr;
    Update([&] { dialog = dialog_; });
    SendMessageW(dialog, WM_CLOSE, 0, 0);
}

bool FakeTaskDialog::HasRun(int calls) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return runs_ >= calls; });
}

bool FakeTaskDialog::HasCalled(const std::vector<std::string>& calls) {
    std::unique_lock lock(mutex_);
    const bool hasCalled = changed_.wait_for(lock, kPatience, [&] { return calls_ == calls; });
    calls_.clear();
    return hasCalled;
}

HRESULT WINAPI FakeTaskDialog::Run(const TASKDIALOGCONFIG* config, int*, int*, BOOL*) {
    return theDialog->RunDialog(*config);
}

LRESULT CALLBACK FakeTaskDialog::Received(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message >= TDM_NAVIGATE_PAGE && message <= TDM_SET_BUTTON_ELEVATION_REQUIRED_STATE + 1) {
        return theDialog->Take(message, wParam, lParam);
    }
    if (message == WM_CLOSE) {
        theDialog->isEnding_ = true;
        PostMessageW(window, WM_NULL, 0, 0);  // for the loop to look up
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

BOOL WINAPI FakeTaskDialog::Move(HWND, HWND after, int, int, int, int, UINT flags) {
    if ((flags & SWP_NOMOVE) == 0) {
        theDialog->WriteCall((flags & SWP_NOACTIVATE) != 0 ? "moved" : "moved and activated");
    } else {
        theDialog->WriteCall(after == HWND_TOPMOST ? "on top" : "among the others");
    }
    return TRUE;
}

BOOL WINAPI FakeTaskDialog::Flash(FLASHWINFO* flash) {
    theDialog->WriteCall(flash->dwFlags == FLASHW_STOP ? "not flashing" : "flashing");
    return FALSE;
}

HRESULT FakeTaskDialog::RunDialog(const TASKDIALOGCONFIG& config) {
    std::optional<HRESULT> refusal;
    std::function<void()> whenRefused;
    Update([&] {
        ++runs_;
        refusal = refusal_;
        whenRefused = whenRefused_;
    });
    if (refusal) {
        whenRefused();
        return *refusal;
    }
    HWND const dialog =
        CreateWindowExW(0, kClass, nullptr, 0, 0, 0, 300, 200, HWND_MESSAGE, nullptr, nullptr, nullptr);
    isEnding_ = false;
    Update([&] { dialog_ = dialog; });
    ShowPage(config);
    static_cast<void>(Notify(TDN_DIALOG_CONSTRUCTED));
    static_cast<void>(Notify(TDN_CREATED));
    MSG message{};
    while (!isEnding_ && GetMessageW(&message, nullptr, 0, 0) > 0) {
        DispatchMessageW(&message);
    }
    static_cast<void>(Notify(TDN_DESTROYED));
    Update([&] { dialog_ = nullptr; });
    DestroyWindow(dialog);
    return S_OK;
}

void FakeTaskDialog::ShowPage(const TASKDIALOGCONFIG& config) {
    Shown page;
    page.flags = config.dwFlags;
    page.title = TextOf(config.pszWindowTitle);
    page.instruction = TextOf(config.pszMainInstruction);
    page.content = TextOf(config.pszContent);
    page.footer = TextOf(config.pszFooter);
    for (const TASKDIALOG_BUTTON& button : std::span(config.pButtons, config.cButtons)) {
        page.buttons.push_back({button.nButtonID, TextOf(button.pszButtonText)});
    }
    page.defaultButton = config.nDefaultButton;
    page.hasOwnIcon = (config.dwFlags & TDF_USE_HICON_MAIN) != 0 && config.hMainIcon != nullptr;
    page.systemIcon = (config.dwFlags & TDF_USE_HICON_MAIN) == 0 ? config.pszMainIcon : nullptr;
    callback_ = config.pfCallback;
    callbackData_ = config.lpCallbackData;
    Update([&] {
        page.pages = shown_.pages + 1;
        shown_ = page;
    });
}

LRESULT FakeTaskDialog::Take(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case TDM_NAVIGATE_PAGE:
            ShowPage(*reinterpret_cast<const TASKDIALOGCONFIG*>(lParam));
            static_cast<void>(Notify(TDN_NAVIGATED));
            break;
        case TDM_CLICK_BUTTON:
            isEnding_ = isEnding_ || Notify(TDN_BUTTON_CLICKED, wParam) == S_OK;
            break;
        case TDM_SET_PROGRESS_BAR_POS:
            Update([&] { shown_.percent = static_cast<int>(wParam); });
            break;
        case TDM_SET_PROGRESS_BAR_MARQUEE:
            Update([&] { shown_.isMoving = wParam != FALSE; });
            break;
        case TDM_SET_ELEMENT_TEXT:
            Update([&] {
                if (wParam == TDE_CONTENT) {
                    shown_.content = reinterpret_cast<const wchar_t*>(lParam);
                }
            });
            break;
        default:
            break;
    }
    return 0;
}

HRESULT FakeTaskDialog::Notify(UINT notification, WPARAM wParam) const {
    return callback_(dialog_, notification, wParam, 0, callbackData_);
}

void FakeTaskDialog::WriteCall(std::string call) {
    Update([&] { calls_.push_back(std::move(call)); });
}

template <typename Change>
void FakeTaskDialog::Update(Change change) {
    {
        const std::lock_guard lock(mutex_);
        change();
    }
    changed_.notify_all();
}
