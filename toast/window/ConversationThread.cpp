#include "toast/window/ConversationThread.h"

#include <utility>

#include "win32/Win32Error.h"

namespace toast {
namespace {

constexpr wchar_t kMailboxClass[] = L"VeyraCameraToastMailbox";
constexpr UINT kEventsHaveCome = WM_APP;
constexpr UINT kLeave = WM_APP + 1;
constexpr UINT kRefresh = WM_APP + 2;
constexpr UINT_PTR kTimer = 1;
constexpr UINT kTimerMs = 500;

TimePoint Now() {
    return TimePoint(GetTickCount64());
}

// Not seen, and not among the windows that others' broadcasts reach.
HWND CreateMailbox(WNDPROC received, void* self) {
    HINSTANCE const program = GetModuleHandleW(nullptr);
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = received;
    windowClass.hInstance = program;
    windowClass.lpszClassName = kMailboxClass;
    RegisterClassW(&windowClass);
    HWND const window =
        CreateWindowExW(0, kMailboxClass, nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, program, nullptr);
    if (window == nullptr) {
        win32::ThrowLastError();
    }
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    return window;
}

}  // namespace

ConversationThread::ConversationThread(ConversationListener& listener, const Texts& texts,
                                       std::function<void(bool)> busy)
    : conversation_(listener),
      texts_(texts),
      inbox_(std::move(busy)),
      // Once the click is over: the dialog's own code still has it in hand.
      window_([this](Conversation::Button button) {
          conversation_.Press(button, Now());
          PostMessageW(mailbox_, kRefresh, 0, 0);
      }) {
    std::promise<HWND> ready;
    std::future<HWND> mailbox = ready.get_future();
    thread_ = std::thread([this, promise = std::move(ready)]() mutable { Run(std::move(promise)); });
    try {
        mailbox_ = mailbox.get();
    } catch (const win32::Win32Error&) {
        thread_.join();
        throw;
    }
}

ConversationThread::~ConversationThread() {
    PostMessageW(mailbox_, kLeave, 0, 0);
    thread_.join();
}

bool ConversationThread::Post(Event event) {
    if (!inbox_.Put(std::move(event))) {
        return false;
    }
    PostMessageW(mailbox_, kEventsHaveCome, 0, 0);
    return true;
}

void ConversationThread::Run(std::promise<HWND> ready) {
    HWND mailbox = nullptr;
    try {
        mailbox = CreateMailbox(&ConversationThread::Received, this);
    } catch (const win32::Win32Error&) {
        ready.set_exception(std::current_exception());
        return;
    }
    ready.set_value(mailbox);
    HoldConversation();
    DestroyWindow(mailbox);
}

void ConversationThread::HoldConversation() {
    MSG message{};
    while (!isLeaving_ && GetMessageW(&message, nullptr, 0, 0) > 0) {
        DispatchMessageW(&message);
        while (!isLeaving_ && shown_.kind != PageKind::kNone) {
            // The dialog takes the thread's messages until nothing more is to be shown.
            if (FAILED(window_.Run(ContentOf(shown_, texts_)))) {
                break;
            }
            Refresh();
        }
    }
}

LRESULT CALLBACK ConversationThread::Received(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* const self = reinterpret_cast<ConversationThread*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    switch (message) {
        case kEventsHaveCome:
        case kRefresh:
        case WM_TIMER:
            self->TakeEvents();
            return 0;
        case kLeave:
            self->isLeaving_ = true;
            if (self->window_.IsOpen()) {
                self->window_.Close();
            }
            return 0;
        default:
            return DefWindowProcW(window, message, wParam, lParam);
    }
}

void ConversationThread::TakeEvents() {
    const TimePoint now = Now();
    for (const Event& event : inbox_.TakeAll()) {
        conversation_.Take(event, now);
    }
    conversation_.Tick(now);
    Refresh();
}

void ConversationThread::Refresh() {
    if (conversation_.IsTimed()) {
        SetTimer(mailbox_, kTimer, kTimerMs, nullptr);
    } else {
        KillTimer(mailbox_, kTimer);
    }
    const Page before = std::exchange(shown_, conversation_.Shown(Now()));
    if (shown_.kind == PageKind::kNone) {
        if (window_.IsOpen()) {
            window_.Close();
        }
        inbox_.Rest();
    } else if (window_.IsOpen()) {
        window_.Show(ContentOf(shown_, texts_),
                     shown_.kind != before.kind || shown_.question != before.question);
    }
}

}  // namespace toast
