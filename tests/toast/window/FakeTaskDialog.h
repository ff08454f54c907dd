#pragma once

#include <windows.h>

#include <commctrl.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ImportRedirect.h"

// Stands in for Windows' task dialog where no screen is: keeps what is shown, sends its notifications, lets a
// test press its buttons. One at a time; the members may be called from every thread.
class FakeTaskDialog {
  public:
    struct Button {
        int id;
        std::wstring text;

        bool operator==(const Button&) const = default;
    };

    struct Shown {
        int flags = 0;
        std::wstring title;
        std::wstring instruction;
        std::wstring content;
        std::wstring footer;
        std::vector<Button> buttons;
        int defaultButton = 0;
        bool hasOwnIcon = false;
        LPCWSTR systemIcon = nullptr;
        int percent = -1;
        bool isMoving = false;
        int pages = 0;  // that it has shown
    };

    FakeTaskDialog();
    ~FakeTaskDialog();

    FakeTaskDialog(const FakeTaskDialog&) = delete;
    FakeTaskDialog& operator=(const FakeTaskDialog&) = delete;

    // The next dialogs do not come up, after `action` has run; S_OK too, as of one that could not show
    // itself. With nothing they come up again.
    void Refuse(
        std::optional<HRESULT> result, std::function<void()> action = [] {});

    // Whether the open dialog shows in time what the condition wants.
    [[nodiscard]] bool Shows(const std::function<bool(const Shown&)>& condition);
    [[nodiscard]] bool ShowsInstruction(const std::wstring& instruction);
    // Whether no dialog is open in time.
    [[nodiscard]] bool Closes();

    // What it shows, or has shown last.
    [[nodiscard]] Shown Last();
    // How often one was to come up.
    [[nodiscard]] int Calls();

    void Press(int button);
    // Takes the open dialog away.
    void Destroy();

    // Whether in time that many were to come up.
    [[nodiscard]] bool HasRun(int calls);
    // Whether it asks the window manager for this in time, and for nothing else since the last look.
    [[nodiscard]] bool HasCalled(const std::vector<std::string>& calls);

  private:
    static HRESULT WINAPI Run(const TASKDIALOGCONFIG* config, int* button, int* radioButton,
                              BOOL* verification);
    static LRESULT CALLBACK Received(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    static BOOL WINAPI Move(HWND window, HWND after, int left, int top, int width, int height, UINT flags);
    static BOOL WINAPI Flash(FLASHWINFO* flash);

    HRESULT RunDialog(const TASKDIALOGCONFIG& config);
    void ShowPage(const TASKDIALOGCONFIG& config);
    LRESULT Take(UINT message, WPARAM wParam, LPARAM lParam);
    [[nodiscard]] HRESULT Notify(UINT notification, WPARAM wParam = 0) const;
    void WriteCall(std::string call);
    template <typename Change>
    void Update(Change change);

    std::mutex mutex_;
    std::condition_variable changed_;
    HWND dialog_ = nullptr;
    bool isEnding_ = false;
    std::optional<HRESULT> refusal_;
    std::function<void()> whenRefused_;
    int runs_ = 0;
    Shown shown_;
    PFTASKDIALOGCALLBACK callback_ = nullptr;
    LONG_PTR callbackData_ = 0;
    std::vector<std::string> calls_;
    test_support::ImportRedirect run_{"TaskDialogIndirect", &FakeTaskDialog::Run};
    test_support::ImportRedirect move_{"SetWindowPos", &FakeTaskDialog::Move};
    test_support::ImportRedirect flash_{"FlashWindowEx", &FakeTaskDialog::Flash};
};
