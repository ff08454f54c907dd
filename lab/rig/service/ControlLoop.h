#pragma once

#include <windows.h>
#include <dbt.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "lab/rig/bus/InterfaceEvent.h"

namespace lab::rig {

// The service control dispatcher's side of a service: hands every control and every device event to the
// service's handler, one at a time, on the thread that called Run(), and records both the handing over and
// the return. After a handler that took more than 30 s it records what Windows would have done by then: the
// event "late-control", with the controls whose senders had waited as long and were told that they failed.
class ControlLoop {
  public:
    using Recorder = std::function<void(const nlohmann::json& event)>;
    using HandlerWork = std::function<void(LPHANDLER_FUNCTION_EX handler, void* context)>;

    // `onIdle` is called on the running thread, with no lock held, each time that nothing is left to hand
    // over.
    // `onHandling` is called with true before each call of the handler and with false after it. `clockMs`
    // tells the time by which a handler is late; it is called on any thread, with no lock held.
    ControlLoop(
        Recorder record, std::function<void()> onIdle,
        std::function<void(bool isHandling)> onHandling = [](bool) {},
        std::function<std::uint64_t()> clockMs = [] { return std::uint64_t{0}; });

    void SetHandler(LPHANDLER_FUNCTION_EX handler, void* context);
    // What the service registered to be told: device events pass only when they match.
    void SetNotification(const DEV_BROADCAST_DEVICEINTERFACE_W& filter, DWORD flags);

    // Queues a control and waits for the handler's result. Any thread but the running one. `data` stays the
    // caller's.
    DWORD Deliver(DWORD control, DWORD type, void* data);
    // Makes a call that may need a lock which the real dispatcher holds while it waits in Deliver(): on the
    // waiting thread when there is one, else here. Returns when it is made; the call's last error is this
    // thread's then.
    void CallBesideDispatcher(const std::function<void()>& call);
    // Queues a device event. Does nothing, as the system, when the service did not register for its class.
    void Queue(const InterfaceEvent& event);
    // Queues a control as the system would send it, and does not wait.
    void QueueControl(DWORD control);
    // Queues work that calls the service's handler itself, on the running thread as every control is; nothing
    // of it is recorded.
    void QueueWork(HandlerWork work);
    // The calling thread is inside the service's handler.
    [[nodiscard]] bool IsHandlingHere() const { return handlingThread_ == GetCurrentThreadId(); }
    // Inside the handler: the link whose arrival it handles; empty for any other control.
    [[nodiscard]] const std::wstring& HandledArrival() const { return handledArrival_; }
    // No event is queued and none is being handled.
    [[nodiscard]] bool IsIdle();

    // Hands over until End(). What is still queued then is dropped; a waiting Deliver gets
    // ERROR_SERVICE_NOT_ACTIVE.
    void Run();
    void End();

  private:
    struct Item;
    struct Errand;

    [[nodiscard]] std::shared_ptr<Item> SentControl(DWORD control) const;
    void HandOver(Item& item);
    void TellWhenLate(Item& item, std::uint64_t begunAtMs, std::uint64_t endedAtMs);
    std::shared_ptr<Item> Next();
    [[nodiscard]] bool WantsEvent(const GUID& interfaceClass) const;

    const Recorder record_;
    const std::function<void()> onIdle_;
    const std::function<void(bool)> onHandling_;
    const std::function<std::uint64_t()> clockMs_;
    std::atomic<DWORD> handlingThread_{0};  // 0 while none is in the handler
    std::wstring handledArrival_;           // of the thread that is in the handler

    std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    std::deque<std::shared_ptr<Item>> queue_;
    std::deque<Errand*> errands_;  // for a thread that waits in Deliver()
    unsigned delivering_ = 0;      // threads that wait there
    LPHANDLER_FUNCTION_EX handler_ = nullptr;
    void* context_ = nullptr;
    bool wantsEvents_ = false;
    bool wantsAllClasses_ = false;
    GUID wantedClass_{};
    bool handling_ = false;
    bool ended_ = false;
};

}  // namespace lab::rig
