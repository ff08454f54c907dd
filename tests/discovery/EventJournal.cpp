#include "tests/discovery/EventJournal.h"

#include "tests/support/Text.h"

#include <stdexcept>

EventJournal::EventJournal()
    : createEvent_("CreateEventW", &RedirectedCreateEvent),
      setEvent_("SetEvent", &RedirectedSetEvent),
      resetEvent_("ResetEvent", &RedirectedResetEvent),
      closeHandle_("CloseHandle", &RedirectedCloseHandle) {}

EventJournal::~EventJournal() {
    for (const Event& event : events_) {
        if (event.isOpen) {
            closeHandle_.Original<decltype(::CloseHandle)>()(event.handle.load());
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
    return number < created_ ? events_[number].handle.load() : nullptr;
}

std::size_t EventJournal::Created() const {
    return created_;
}

bool EventJournal::IsOpen(std::size_t number) const {
    return number < created_ && events_[number].isOpen;
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
    const std::size_t number = NumberOf(handle);
    if (number == kMostEvents) {
        return;
    }
    if (closes) {
        events_[number].isOpen = false;
    }
    Record(test_support::Text(function, '(', number, ')'));
}

void EventJournal::Add(HANDLE handle) {
    const std::scoped_lock guard(lock_);
    if (created_ == kMostEvents) {
        throw std::length_error("the journal is full");
    }
    Event& event = events_[created_];
    event.handle = handle;
    event.isOpen = true;
    ++created_;
}

std::size_t EventJournal::NumberOf(HANDLE handle) const {
    const std::size_t created = created_;
    for (std::size_t number = 0; number < created; ++number) {
        if (events_[number].isOpen && events_[number].handle == handle) {
            return number;
        }
    }
    return kMostEvents;
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
    journal.Add(handle);
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
