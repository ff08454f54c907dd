#include "toast/window/TaskWindow.h"

#include <utility>

#include "toast/window/Placement.h"
#include "toast/window/ProgramIcon.h"

namespace toast {
namespace {

// Windows has it since version 8; not every compiler's headers name it.
constexpr TASKDIALOG_FLAGS kNoSetForeground = 0x10000;
constexpr int kMarginAt96Dpi = 16;

int FlagsOf(const DialogContent& content) {
    int flags = TDF_ALLOW_DIALOG_CANCELLATION | TDF_CAN_BE_MINIMIZED | kNoSetForeground;
    switch (content.bar) {
        case DialogContent::Bar::kMoving:
            flags |= TDF_SHOW_MARQUEE_PROGRESS_BAR;
            break;
        case DialogContent::Bar::kPercent:
            flags |= TDF_SHOW_PROGRESS_BAR;
            break;
        case DialogContent::Bar::kNone:
            break;
    }
    return content.isWarning ? flags : flags | TDF_USE_HICON_MAIN;
}

}  // namespace

// A page, with what Windows reads of it for as long as it is shown.
struct TaskWindow::PageSettings {
    PageSettings(DialogContent shown, PFTASKDIALOGCALLBACK callback, void* self) : content(std::move(shown)) {
        if (!content.updateButton.empty()) {
            buttons.at(buttonCount++) = {kUpdateButton, content.updateButton.c_str()};
        }
        buttons.at(buttonCount++) = {kDismissButton, content.dismissButton.c_str()};

        config.cbSize = sizeof config;
        config.dwFlags = FlagsOf(content);
        config.pszWindowTitle = content.title.c_str();
        config.pszMainInstruction = content.instruction.c_str();
        config.pszContent = content.content.c_str();
        config.pszFooter = content.footer.empty() ? nullptr : content.footer.c_str();
        config.pszFooterIcon = content.footer.empty() ? nullptr : TD_INFORMATION_ICON;
        if (content.isWarning) {
            config.pszMainIcon = TD_WARNING_ICON;
        } else {
            config.hMainIcon = ProgramIcon();
        }
        config.pButtons = buttons.data();
        config.cButtons = buttonCount;
        // Return in a window that nobody has looked at must not start anything.
        config.nDefaultButton = kDismissButton;
        config.pfCallback = callback;
        config.lpCallbackData = reinterpret_cast<LONG_PTR>(self);
    }

    DialogContent content;
    std::array<TASKDIALOG_BUTTON, 2> buttons{};
    UINT buttonCount = 0;
    TASKDIALOGCONFIG config{};
};

TaskWindow::TaskWindow(PressHandler pressed) : pressed_(std::move(pressed)) {}

TaskWindow::~TaskWindow() = default;

HRESULT TaskWindow::Run(const DialogContent& content) {
    page_ = std::make_unique<PageSettings>(content, &TaskWindow::Callback, this);
    isClosing_ = false;
    wasOpen_ = false;
    const HRESULT result = TaskDialogIndirect(&page_->config, nullptr, nullptr, nullptr);
    dialog_ = nullptr;
    if (!wasOpen_) {
        return FAILED(result) ? result : E_FAIL;
    }
    if (!isClosing_) {
        // Somebody else has closed it.
        pressed_(Conversation::Button::kDismiss);
    }
    return S_OK;
}

void TaskWindow::Show(const DialogContent& content, bool wholePage) {
    if (wholePage || !content.HasFrameOf(page_->content)) {
        auto next = std::make_unique<PageSettings>(content, &TaskWindow::Callback, this);
        std::swap(page_, next);
        SendMessageW(dialog_, TDM_NAVIGATE_PAGE, 0, reinterpret_cast<LPARAM>(&page_->config));
        return;
    }
    const bool sameText = content.content == page_->content.content;
    page_->content.percent = content.percent;
    if (!sameText) {
        page_->content.content = content.content;
        SendMessageW(dialog_, TDM_SET_ELEMENT_TEXT, TDE_CONTENT,
                     reinterpret_cast<LPARAM>(page_->content.content.c_str()));
        KeepInside();
        // A text of another length gets other room: what was drawn before that does not fit.
        RedrawWindow(dialog_, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN);
    }
    ShowBar();
}

void TaskWindow::Close() {
    isClosing_ = true;
    SendMessageW(dialog_, TDM_CLICK_BUTTON, kDismissButton, 0);
}

HRESULT CALLBACK TaskWindow::Callback(HWND dialog, UINT notification, WPARAM wParam, LPARAM, LONG_PTR self) {
    return reinterpret_cast<TaskWindow*>(self)->Notified(dialog, notification, wParam);
}

HRESULT TaskWindow::Notified(HWND dialog, UINT notification, WPARAM wParam) {
    switch (notification) {
        case TDN_CREATED:
            Created(dialog);
            break;
        case TDN_NAVIGATED:
            KeepInside();
            ShowBar();
            DrawAttention();
            break;
        case TDN_BUTTON_CLICKED:
            if (isClosing_) {
                return S_OK;
            }
            pressed_(static_cast<int>(wParam) == kUpdateButton ? Conversation::Button::kUpdate
                                                               : Conversation::Button::kDismiss);
            return S_FALSE;
        case TDN_DESTROYED:
            dialog_ = nullptr;
            break;
        default:
            break;
    }
    return S_OK;
}

void TaskWindow::Created(HWND dialog) {
    dialog_ = dialog;
    wasOpen_ = true;
    RECT window{};
    GetWindowRect(dialog, &window);
    const int margin =
        MulDiv(kMarginAt96Dpi, static_cast<int>(GetDpiForWindow(dialog)), USER_DEFAULT_SCREEN_DPI);
    const POINT corner =
        CornerPosition(UserWorkArea(), {window.right - window.left, window.bottom - window.top}, margin);
    SetWindowPos(dialog, nullptr, corner.x, corner.y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    ShowBar();
    DrawAttention();
}

void TaskWindow::KeepInside() const {
    RECT window{};
    GetWindowRect(dialog_, &window);
    const POINT position = PositionInside(WorkAreaOf(dialog_), window);
    SetWindowPos(dialog_, nullptr, position.x, position.y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

void TaskWindow::ShowBar() const {
    if (page_->content.bar == DialogContent::Bar::kMoving) {
        SendMessageW(dialog_, TDM_SET_PROGRESS_BAR_MARQUEE, TRUE, 0);
    } else if (page_->content.bar == DialogContent::Bar::kPercent) {
        SendMessageW(dialog_, TDM_SET_PROGRESS_BAR_POS, static_cast<WPARAM>(page_->content.percent), 0);
    }
}

void TaskWindow::DrawAttention() const {
    const bool attention = page_->content.needsAttention;
    SetWindowPos(dialog_, attention ? HWND_TOPMOST : HWND_NOTOPMOST, 0, 0, 0, 0,
                 SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    FLASHWINFO flash{};
    flash.cbSize = sizeof flash;
    flash.hwnd = dialog_;
    flash.dwFlags =
        attention && GetForegroundWindow() != dialog_ ? FLASHW_TRAY | FLASHW_TIMERNOFG : FLASHW_STOP;
    FlashWindowEx(&flash);
}

}  // namespace toast
