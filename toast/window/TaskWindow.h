#pragma once

#include <windows.h>

#include <commctrl.h>

#include <array>
#include <functional>
#include <memory>

#include "toast/conversation/Conversation.h"
#include "toast/window/DialogContent.h"

namespace toast {

// One task dialog, whose page changes with what it has to show. It comes up in the corner of the monitor
// where the user is, without taking the focus from where the user types; what needs attention lies on top and
// flashes in the task bar until it is looked at. No text is taken for a link. All members on one thread.
class TaskWindow {
  public:
    // The dialog's buttons. Escape and the window's own closing are the second one.
    static constexpr int kUpdateButton = 100;
    static constexpr int kDismissButton = IDCANCEL;

    using PressHandler = std::function<void(Conversation::Button)>;

    // The handler is called inside Run. A button closes nothing by itself: it may call Show and Close.
    explicit TaskWindow(PressHandler pressed);
    ~TaskWindow();

    TaskWindow(const TaskWindow&) = delete;
    TaskWindow& operator=(const TaskWindow&) = delete;

    // Opens the window and delivers the thread's messages until it is closed. One that is closed by another
    // hand than Close's counts as dismissed. Fails when none came up.
    [[nodiscard]] HRESULT Run(const DialogContent& content);

    [[nodiscard]] bool IsOpen() const { return dialog_ != nullptr; }

    // Changes what the open window shows: what is different, or the whole page, which a screen reader then
    // reads anew.
    void Show(const DialogContent& content, bool wholePage);

    // Ends Run.
    void Close();

  private:
    struct PageSettings;

    static HRESULT CALLBACK Callback(HWND dialog, UINT notification, WPARAM wParam, LPARAM lParam,
                                     LONG_PTR self);
    HRESULT Notified(HWND dialog, UINT notification, WPARAM wParam);

    void Created(HWND dialog);
    // What is shown may have grown.
    void KeepInside() const;
    void ShowBar() const;
    void DrawAttention() const;

    PressHandler pressed_;
    std::unique_ptr<PageSettings> page_;
    HWND dialog_ = nullptr;
    bool wasOpen_ = false;
    bool isClosing_ = false;
};

}  // namespace toast
