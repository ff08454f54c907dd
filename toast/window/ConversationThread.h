#pragma once

#include <windows.h>

#include <functional>
#include <future>
#include <optional>
#include <thread>

#include "toast/conversation/Conversation.h"
#include "toast/conversation/Event.h"
#include "toast/window/EventInbox.h"
#include "toast/window/TaskWindow.h"
#include "toast/window/Texts.h"

namespace toast {

// The thread that a conversation is held on, and its window is on. It never waits for a client, nor a client
// for it.
class ConversationThread final : public EventReceiver {
  public:
    // Returns once the thread takes events. The listener is called on the thread and must outlive this
    // object; `busy` is told on any thread whether there is something to do or to show, and must call nothing
    // here. Throws win32::Win32Error when Windows gives no window to wake the thread by.
    ConversationThread(ConversationListener& listener, const Texts& texts, std::function<void(bool)> busy);
    // Closes the window, drops the events that are left and waits for the thread.
    ~ConversationThread();

    ConversationThread(const ConversationThread&) = delete;
    ConversationThread& operator=(const ConversationThread&) = delete;

    [[nodiscard]] bool Post(Event event) override;

  private:
    static LRESULT CALLBACK Received(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    void Run(std::promise<HWND> ready);
    void HoldConversation();
    void TakeEvents();
    void Refresh();

    Conversation conversation_;
    const Texts texts_;
    EventInbox inbox_;
    TaskWindow window_;
    Page shown_;
    bool isLeaving_ = false;
    HWND mailbox_ = nullptr;  // not seen; its messages wake the thread, also while a dialog takes them
    std::thread thread_;
};

}  // namespace toast
