#include "lab/toast/AdvisedSinks.h"

#include <utility>

namespace lab::toast {

DWORD AdvisedSinks::Add(const IConnectionPoint* point, Sink sink) {
    const std::lock_guard lock(mutex_);
    const DWORD cookie = ++lastCookie_;
    entries_.emplace(cookie, Entry{point, std::move(sink)});
    return cookie;
}

// A removed sink is released after the lock is left: the release goes to the client's process.
bool AdvisedSinks::Remove(const IConnectionPoint* point, DWORD cookie) {
    std::map<DWORD, Entry>::node_type removed;
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(cookie);
    if (found == entries_.end() || found->second.point != point) {
        return false;
    }
    removed = entries_.extract(found);
    return true;
}

void AdvisedSinks::RemoveAllOf(const IConnectionPoint* point) {
    std::vector<Sink> removed;
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [&](const auto& entry) {
        if (entry.second.point != point) {
            return false;
        }
        removed.push_back(entry.second.sink);
        return true;
    });
}

void AdvisedSinks::RemoveAll() {
    std::map<DWORD, Entry> removed;
    const std::lock_guard lock(mutex_);
    removed.swap(entries_);
}

std::vector<AdvisedSinks::Sink> AdvisedSinks::All() const {
    const std::lock_guard lock(mutex_);
    std::vector<Sink> sinks;
    for (const auto& [cookie, entry] : entries_) {
        sinks.push_back(entry.sink);
    }
    return sinks;
}

}  // namespace lab::toast
