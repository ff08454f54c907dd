#pragma once

#include "discovery/DeviceNotification.h"
#include "discovery/DevicePathMatching.h"
#include "win32/UniqueHandle.h"

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

// Keeps the list of the watched USB devices that are present, fed by Refresh() and by arrival and removal
// notifications, and lets a caller wait until a device is there. Notifications run on a thread of the
// configuration manager from construction to destruction; the list has a lock of its own, and every operation
// may be called from any thread.
//
// Both events carry the watcher's name, so that all watchers of one name in the session share one event
// object: this is deliberate.
class DeviceInterfaceWatcher {
  public:
    // `name` names the two events; vendor and product, in any case, make the first filter. A refused event or
    // registration is no failure: nothing is signalled or heard of then.
    DeviceInterfaceWatcher(std::wstring name, std::wstring_view vendor, std::wstring_view product);
    ~DeviceInterfaceWatcher();

    DeviceInterfaceWatcher(const DeviceInterfaceWatcher&) = delete;
    DeviceInterfaceWatcher& operator=(const DeviceInterfaceWatcher&) = delete;

    // Watches a further product, texts in any case.
    void AddFilter(std::wstring_view vendor, std::wstring_view product);

    // Rebuilds the list from the interfaces present. Resets the arrival event first; each device found
    // signals it.
    void Refresh();

    // Waits until the device with exactly this link, folded to lower case, is in the list, in up to ten
    // attempts of a tenth of the time-out each, of 10 ms below 110 ms. 0 when it is there, 2 when it did not
    // appear.
    [[nodiscard]] DWORD WaitForDevice(DWORD timeoutMs, std::wstring_view foldedLink);

    // A copy of the list, in the order found.
    [[nodiscard]] std::vector<DeviceEntry> Devices() const;

    // Signalled (manual reset) when a device was added; also when one was removed, since the events are one
    // object. Owned by the watcher; null when Windows refused to create it.
    [[nodiscard]] HANDLE ArrivalEvent() const { return arrivalEvent_.Get(); }

  private:
    static DWORD CALLBACK OnNotification(HCMNOTIFICATION registration, PVOID context, CM_NOTIFY_ACTION action,
                                         PCM_NOTIFY_EVENT_DATA eventData, DWORD eventDataSize);

    void OnArrival(std::wstring_view link);
    void OnRemoval(std::wstring_view link);
    // The caller holds the lock.
    void Add(std::wstring foldedLink);
    [[nodiscard]] bool Contains(std::wstring_view foldedLink) const;

    std::wstring name_;
    win32::UniqueKernelHandle arrivalEvent_;
    HANDLE removalEvent_ = nullptr;  // deliberately never closed
    mutable std::mutex lock_;        // guards the list and the filters
    std::vector<DeviceEntry> devices_;
    HCMNOTIFICATION notification_ = nullptr;
    std::vector<DeviceFilter> filters_;
};
