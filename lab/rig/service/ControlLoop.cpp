#include "lab/rig/service/ControlLoop.h"

#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/rig/service/BroadcastRecord.h"
#include "lab/rig/text/GuidText.h"
#include "lab/wire/Utf8.h"

namespace lab::rig {

using nlohmann::json;

struct ControlLoop::Item {
    DWORD control = 0;
    DWORD type = 0;
    void* data = nullptr;
    std::vector<std::byte> record;  // of a device event: what `data` points to
    json event;                     // what is recorded when it is handed over
    HandlerWork work;               // done in place of a control
    std::optional<DWORD> result;    // guarded by the loop's mutex
};

struct ControlLoop::Errand {
    const std::function<void()>& call;
    DWORD lastError = ERROR_SUCCESS;
    bool isDone = false;
};

ControlLoop::ControlLoop(Recorder record, std::function<void()> onIdle,
                         std::function<void(bool isHandling)> onHandling)
    : record_(std::move(record)), onIdle_(std::move(onIdle)), onHandling_(std::move(onHandling)) {}

void ControlLoop::SetHandler(LPHANDLER_FUNCTION_EX handler, void* context) {
    const std::lock_guard lock(mutex_);
    handler_ = handler;
    context_ = context;
}

void ControlLoop::SetNotification(const DEV_BROADCAST_DEVICEINTERFACE_W& filter, DWORD flags) {
    const std::lock_guard lock(mutex_);
    wantsEvents_ = true;
    wantsAllClasses_ = (flags & DEVICE_NOTIFY_ALL_INTERFACE_CLASSES) != 0;
    wantedClass_ = filter.dbcc_classguid;
}

DWORD ControlLoop::Deliver(DWORD control, DWORD type, void* data) {
    const auto item = std::make_shared<Item>();
    item->control = control;
    item->type = type;
    item->data = data;
    item->event = {{"event", "control"}, {"control", control}};
    std::unique_lock lock(mutex_);
    if (ended_) {
        return ERROR_SERVICE_NOT_ACTIVE;
    }
    queue_.push_back(item);
    ++delivering_;
    changed_.notify_all();
    for (;;) {
        changed_.wait(lock, [&] { return item->result || !errands_.empty(); });
        if (errands_.empty()) {
            --delivering_;
            return *item->result;
        }
        Errand& errand = *errands_.front();
        errands_.pop_front();
        lock.unlock();
        errand.call();
        errand.lastError = GetLastError();
        lock.lock();
        errand.isDone = true;
        changed_.notify_all();
    }
}

void ControlLoop::CallBesideDispatcher(const std::function<void()>& call) {
    std::unique_lock lock(mutex_);
    if (delivering_ == 0) {
        lock.unlock();
        call();
        return;
    }
    Errand errand{call};
    errands_.push_back(&errand);
    changed_.notify_all();
    changed_.wait(lock, [&] { return errand.isDone; });
    lock.unlock();
    SetLastError(errand.lastError);
}

void ControlLoop::QueueControl(DWORD control) {
    const auto item = std::make_shared<Item>();
    item->control = control;
    item->event = {{"event", "control"}, {"control", control}};
    const std::lock_guard lock(mutex_);
    if (!ended_ && handler_ != nullptr) {
        queue_.push_back(item);
        changed_.notify_all();
    }
}

void ControlLoop::Queue(const InterfaceEvent& event) {
    const auto item = std::make_shared<Item>();
    item->control = SERVICE_CONTROL_DEVICEEVENT;
    item->type = event.type;
    item->record = BroadcastRecord(event);
    item->data = item->record.data();
    item->event = {{"event", "control"},
                   {"control", item->control},
                   {"type", event.type},
                   {"class", GuidText(event.interfaceClass)},
                   {"link", Utf8(event.link)}};
    const std::lock_guard lock(mutex_);
    if (!ended_ && handler_ != nullptr && WantsEvent(event.interfaceClass)) {
        queue_.push_back(item);
        changed_.notify_all();
    }
}

void ControlLoop::QueueWork(HandlerWork work) {
    const auto item = std::make_shared<Item>();
    item->work = std::move(work);
    const std::lock_guard lock(mutex_);
    if (!ended_ && handler_ != nullptr) {
        queue_.push_back(item);
        changed_.notify_all();
    }
}

bool ControlLoop::IsIdle() {
    const std::lock_guard lock(mutex_);
    return queue_.empty() && !handling_;
}

void ControlLoop::Run() {
    while (const auto item = Next()) {
        HandOver(*item);
        bool idle = false;
        {
            const std::lock_guard lock(mutex_);
            handling_ = false;
            idle = queue_.empty();
        }
        if (idle) {
            onIdle_();
        }
    }
    onIdle_();
}

void ControlLoop::End() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    for (const auto& item : std::exchange(queue_, {})) {
        item->result = ERROR_SERVICE_NOT_ACTIVE;
    }
    changed_.notify_all();
}

std::shared_ptr<ControlLoop::Item> ControlLoop::Next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return ended_ || !queue_.empty(); });
    if (ended_) {
        return nullptr;
    }
    auto item = std::move(queue_.front());
    queue_.pop_front();
    handling_ = true;
    return item;
}

void ControlLoop::HandOver(Item& item) {
    LPHANDLER_FUNCTION_EX handler = nullptr;
    void* context = nullptr;
    {
        const std::lock_guard lock(mutex_);
        handler = handler_;
        context = context_;
    }
    if (item.work) {
        handlingThread_ = GetCurrentThreadId();
        item.work(handler, context);
        handlingThread_ = 0;
        return;
    }
    item.event["thread"] = GetCurrentThreadId();
    record_(item.event);
    const auto begin = std::chrono::steady_clock::now();
    onHandling_(true);
    handlingThread_ = GetCurrentThreadId();
    const DWORD result = handler(item.control, item.type, item.data, context);
    handlingThread_ = 0;
    onHandling_(false);
    const auto taken = std::chrono::steady_clock::now() - begin;
    record_({{"event", "handled"},
             {"control", item.control},
             {"result", result},
             {"ms", std::chrono::duration_cast<std::chrono::milliseconds>(taken).count()},
             {"us", std::chrono::duration<double, std::micro>(taken).count()}});
    const std::lock_guard lock(mutex_);
    item.result = result;
    changed_.notify_all();
}

bool ControlLoop::WantsEvent(const GUID& interfaceClass) const {
    return wantsEvents_ && (wantsAllClasses_ || wantedClass_ == interfaceClass);
}

}  // namespace lab::rig
