#include "lab/rig/service/InterfaceWatchers.h"

#include <dbt.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <nlohmann/json.hpp>

#include "lab/rig/text/GuidText.h"
#include "lab/wire/Utf8.h"

namespace lab::rig {
namespace {

constexpr DWORD kAllInterfaceClasses = 1;  // CM_NOTIFY_FILTER_FLAG_ALL_INTERFACE_CLASSES

std::vector<std::byte> EventData(const InterfaceEvent& event) {
    constexpr std::size_t kLinkOffset = offsetof(CM_NOTIFY_EVENT_DATA, u.DeviceInterface.SymbolicLink);
    const std::size_t linkSize = (event.link.size() + 1) * sizeof(wchar_t);
    std::vector<std::byte> data(std::max(kLinkOffset + linkSize, sizeof(CM_NOTIFY_EVENT_DATA)));
    CM_NOTIFY_EVENT_DATA header{};
    header.FilterType = CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE;
    header.u.DeviceInterface.ClassGuid = event.interfaceClass;
    std::memcpy(data.data(), &header, kLinkOffset);
    std::memcpy(data.data() + kLinkOffset, event.link.c_str(), linkSize);
    return data;
}

}  // namespace

CONFIGRET InterfaceWatchers::Register(const CM_NOTIFY_FILTER* filter, void* context,
                                      PCM_NOTIFY_CALLBACK callback, HCMNOTIFICATION* handle) {
    if (filter == nullptr || callback == nullptr || handle == nullptr) {
        return CR_INVALID_POINTER;
    }
    *handle = nullptr;
    if (filter->cbSize != sizeof(CM_NOTIFY_FILTER)) {
        return CR_INVALID_DATA;
    }
    if ((filter->Flags & ~kAllInterfaceClasses) != 0) {
        return CR_INVALID_FLAG;
    }
    if (filter->FilterType != CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE) {
        return CR_CALL_NOT_IMPLEMENTED;
    }
    RecordWatch(*filter, true);
    const std::lock_guard lock(mutex_);
    const std::uintptr_t id = ++lastId_;
    watchers_.push_back({id, (filter->Flags & kAllInterfaceClasses) != 0, filter->u.DeviceInterface.ClassGuid,
                         context, callback, *filter});
    *handle = reinterpret_cast<HCMNOTIFICATION>(id);
    return CR_SUCCESS;
}

CONFIGRET InterfaceWatchers::Unregister(HCMNOTIFICATION handle) {
    const auto id = reinterpret_cast<std::uintptr_t>(handle);
    CM_NOTIFY_FILTER filter{};
    {
        std::unique_lock lock(mutex_);
        const auto watcher = std::ranges::find(watchers_, id, &Watcher::id);
        if (watcher == watchers_.end()) {
            return CR_INVALID_DATA;
        }
        filter = watcher->filter;
        watchers_.erase(watcher);
        if (callingThread_ != std::this_thread::get_id()) {
            calledBack_.wait(lock, [this, id] { return calling_ != id; });
        }
    }
    RecordWatch(filter, false);
    return CR_SUCCESS;
}

void InterfaceWatchers::Notify(const InterfaceEvent& event) {
    const bool arrival = event.type == DBT_DEVICEARRIVAL;
    const auto action =
        arrival ? CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL : CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL;
    std::unique_lock lock(mutex_);
    const auto watchers = watchers_;
    for (const Watcher& watcher : watchers) {
        const bool watches = watcher.allClasses || watcher.interfaceClass == event.interfaceClass;
        if (!watches || std::ranges::find(watchers_, watcher.id, &Watcher::id) == watchers_.end()) {
            continue;
        }
        calling_ = watcher.id;
        callingThread_ = std::this_thread::get_id();
        lock.unlock();
        auto data = EventData(event);
        const DWORD result = watcher.callback(reinterpret_cast<HCMNOTIFICATION>(watcher.id), watcher.context,
                                              action, reinterpret_cast<PCM_NOTIFY_EVENT_DATA>(data.data()),
                                              static_cast<DWORD>(data.size()));
        record_({{"event", "watch-callback"},
                 {"action", arrival ? "arrival" : "removal"},
                 {"link", Utf8(event.link)},
                 {"result", result}});
        lock.lock();
        calling_ = 0;
        callingThread_ = {};
        calledBack_.notify_all();
    }
}

void InterfaceWatchers::RecordWatch(const CM_NOTIFY_FILTER& filter, bool registered) const {
    record_({{"event", "watch"},
             {"size", filter.cbSize},
             {"flags", filter.Flags},
             {"filter_type", static_cast<unsigned>(filter.FilterType)},
             {"class", GuidText(filter.u.DeviceInterface.ClassGuid)},
             {"registered", registered}});
}

}  // namespace lab::rig
