#include "tests/discovery/EventJournal.h"

#include "tests/support/Text.h"

#include <algorithm>

EventJournal::EventJournal()
    : createEvent_("CreateEventW", &RedirectedCreateEvent),
      setEvent_("SetEvent", &RedirectedSetEvent),
      resetEvent_("ResetEvent", &RedirectedResetEvent),
      closeHandle_("CloseHandle", &RedirectedCloseHandle) {}

EventJournal::~EventJournal() {
    for (const Event& event : events_) {
        if (event.isOpen) {
            closeHandle_.Original<decltype(::CloseHandle)>()(event.handle);
        }
    }
}

std::vector<std::string> EventJournal::Calls() const {
    const std::scoped_lock guard(lock_);
    return calls_;
}

void EventJournal::ForgetCalls() {
    const std::scoped_lock guard(lock_);
    calls_.clear();
}

HANDLE EventJournal::Handle(std::size_t number) const {
    const std::scoped_lock guard(lock_);
    return number < events_.size() ? events_[number].handle : nullptr;
}

std::size_t EventJournal::Created() const {
    const std::scoped_lock guard(lock_);
    return events_.size();
}

bool EventJournal::IsOpen(std::size_t number) const {
    const std::scoped_lock guard(lock_);
    return number < events_.size() && events_[number].isOpen;
}

void EventJournal::Record(const std::string& call) {
    {
        const std::scoped_lock guard(lock_);
        calls_.push_back(call);
    }
    if (onCall_) {
        onCall_(call);
    }
}

void EventJournal::RecordOn(const char* function, HANDLE handle, bool closes) {
    std::optional<std::size_t> number;
    {
        const std::scoped_lock guard(lock_);
        const auto event = std::find_if(events_.begin(), events_.end(), [handle](const Event& each) {
            return each.isOpen && each.handle == handle;
        });
        if (event != events_.end()) {
            number = static_cast<std::size_t>(event - events_.begin());
            event->isOpen = !closes;
        }
    }
    if (number) {
        Record(test_support::Text(function, '(', *number, ')'));
    }
}

HANDLE WINAPI EventJournal::RedirectedCreateEvent(LPSECURITY_ATTRIBUTES security, BOOL manualReset,
                                                  BOOL signalled, LPCWSTR name) {
    EventJournal& journal = *current_;
    const auto original = journal.createEvent_.Original<decltype(::CreateEventW)>();
    if (name == nullptr) {
        return original(security, manualReset, signalled, name);
    }
    journal.Record(test_support::Text("CreateEventW(", security == nullptr ? "no security" : "security",
                                      manualReset != FALSE ? ", manual reset" : ", automatic reset",
                                      signalled != FALSE ? ", signalled, " : ", not signalled, ",
                                      test_support::Narrow(name), ")"));
    if (journal.refusesEvents_) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    const HANDLE handle = original(security, manualReset, signalled, name);
    const std::scoped_lock guard(journal.lock_);
    journal.events_.push_back(Event{handle, true});
    return handle;
}

BOOL WINAPI EventJournal::RedirectedSetEvent(HANDLE event) {
    current_->RecordOn("SetEvent", event, false);
    return current_->setEvent_.Original<decltype(::SetEvent)>()(event);
}

BOOL WINAPI EventJournal::RedirectedResetEvent(HANDLE event) {
    current_->RecordOn("ResetEvent", event, false);
    return current_->resetEvent_.Original<decltype(::ResetEvent)>()(event);
}

BOOL WINAPI EventJournal::RedirectedCloseHandle(HANDLE handle) {
    current_->RecordOn("CloseHandle", handle, true);
    return current_->closeHandle_.Original<decltype(::CloseHandle)>()(handle);
}
