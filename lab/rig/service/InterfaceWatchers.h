#pragma once

#include <windows.h>
#include <cfgmgr32.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "lab/rig/bus/InterfaceEvent.h"

namespace lab::rig {

// The configuration manager's notifications: who registered for which interface class, and the calls back.
class InterfaceWatchers {
  public:
    using Recorder = std::function<void(const nlohmann::json& event)>;

    explicit InterfaceWatchers(Recorder record) : record_(std::move(record)) {}

    // As CM_Register_Notification; only interface filters are known (others: CR_CALL_NOT_IMPLEMENTED).
    CONFIGRET Register(const CM_NOTIFY_FILTER* filter, void* context, PCM_NOTIFY_CALLBACK callback,
                       HCMNOTIFICATION* handle);
    // As CM_Unregister_Notification: when it returns, no callback of this registration runs any more, unless
    // it is called from that very callback.
    CONFIGRET Unregister(HCMNOTIFICATION handle);

    // Calls back everybody who watches the event's class, one after the other. One thread at a time.
    void Notify(const InterfaceEvent& event);

  private:
    struct Watcher {
        std::uintptr_t id = 0;
        bool allClasses = false;
        GUID interfaceClass{};
        void* context = nullptr;
        PCM_NOTIFY_CALLBACK callback = nullptr;
        CM_NOTIFY_FILTER filter{};
    };

    void RecordWatch(const CM_NOTIFY_FILTER& filter, bool registered) const;

    const Recorder record_;
    std::mutex mutex_;  // guards everything below
    std::condition_variable calledBack_;
    std::vector<Watcher> watchers_;
    std::uintptr_t lastId_ = 0;
    std::uintptr_t calling_ = 0;  // the watcher whose callback runs; 0 for none
    std::thread::id callingThread_;
};

}  // namespace lab::rig
