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

namespace {

// The service control manager's patience: with a handler, and with a control that waits for its turn.
constexpr std::uint64_t kPatienceMs = 30'000;
constexpr unsigned kTransactionTimeout = 7011;  // of the service control manager, in the System log

}  // namespace

struct ControlLoop::Item {
    DWORD control = 0;
    DWORD type = 0;
    void* data = nullptr;
    std::optional<std::uint64_t> sentAtMs;  // of a control whose sender still waits; a device event has none
    std::vector<std::byte> record;          // of a device event: what `data` points to
    std::wstring arrival;                   // the link, when the event is an arrival
    json event;                             // what is recorded when it is handed over
    HandlerWork work;                       // done in place of a control
    std::optional<DWORD> result;            // guarded by the loop's mutex
};

struct ControlLoop::Errand {
    const std::function<void()>& call;
    DWORD lastError = ERROR_SUCCESS;
    bool isDone = false;
};

ControlLoop::ControlLoop(Recorder record, std::function<void()> onIdle,
                         std::function<void(bool isHandling)> onHandling,
                         std::function<std::uint64_t()> clockMs)
    : record_(std::move(record)),
      onIdle_(std::move(onIdle)),
      onHandling_(std::move(onHandling)),
      clockMs_(std::move(clockMs)) {}

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
    const auto item = SentControl(control);
    item->type = type;
    item->data = data;
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
    const auto item = SentControl(control);
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
    item->arrival = event.type == DBT_DEVICEARRIVAL ? event.link : L"";
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

std::shared_ptr<ControlLoop::Item> ControlLoop::SentControl(DWORD control) const {
    auto item = std::make_shared<Item>();
    item->control = control;
    item->sentAtMs = clockMs_();
    item->event = {{"event", "control"}, {"control", control}};
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
    const std::uint64_t begunAtMs = clockMs_();
    handledArrival_ = item.arrival;
    handlingThread_ = GetCurrentThreadId();
    const DWORD result = handler(item.control, item.type, item.data, context);
    handlingThread_ = 0;
    const std::uint64_t endedAtMs = clockMs_();
    onHandling_(false);
    const auto taken = std::chrono::steady_clock::now() - begin;
    record_({{"event", "handled"},
             {"control", item.control},
             {"result", result},
             {"ms", std::chrono::duration_cast<std::chrono::milliseconds>(taken).count()},
             {"us", std::chrono::duration<double, std::micro>(taken).count()}});
    TellWhenLate(item, begunAtMs, endedAtMs);
    const std::lock_guard lock(mutex_);
    item.result = result;
    changed_.notify_all();
}

void ControlLoop::TellWhenLate(Item& item, std::uint64_t begunAtMs, std::uint64_t endedAtMs) {
    if (endedAtMs - begunAtMs <= kPatienceMs) {
        return;
    }
    json refused = json::array();
    const auto refuse = [&](Item& sent) {
        if (sent.sentAtMs && endedAtMs - *sent.sentAtMs > kPatienceMs) {
            refused.push_back(sent.control);
            sent.sentAtMs.reset();
        }
    };
    refuse(item);
    {
        const std::lock_guard lock(mutex_);
        for (const auto& waiting : queue_) {
            refuse(*waiting);
        }
    }
    record_({{"event", "late-control"},
             {"control", item.control},
             {"ms", endedAtMs - begunAtMs},
             {"id", kTransactionTimeout},
             {"text",
              "A timeout (30000 milliseconds) was reached while waiting for a transaction response "
              "from the service."},
             {"refused", refused},
             {"error", ERROR_SERVICE_REQUEST_TIMEOUT}});
}

bool ControlLoop::WantsEvent(const GUID& interfaceClass) const {
    return wantsEvents_ && (wantsAllClasses_ || wantedClass_ == interfaceClass);
}

}  // namespace lab::rig
