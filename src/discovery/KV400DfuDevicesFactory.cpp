#include "discovery/KV400DfuDevicesFactory.h"

#include "discovery/DeviceInterfaceWatcher.h"
#include "discovery/KV400DfuDevice.h"
#include "discovery/WatchedProducts.h"

KV400DfuDevicesFactory::KV400DfuDevicesFactory(std::ostream* logStream) : DfuLogger(logStream) {}

std::vector<std::shared_ptr<IDfuDevice>> KV400DfuDevicesFactory::GetDevices(DWORD timeoutMs) {
    DeviceInterfaceWatcher watcher(kDfuDeviceWatcherName, kVendorText, kFirstDfuProductText);
    watcher.AddFilter(kVendorText, kSecondDfuProductText);
    if (timeoutMs != 0) {
        watcher.Refresh();
        WaitForSingleObject(watcher.ArrivalEvent(), timeoutMs);  // the list tells what came, not the wait
    }
    watcher.Refresh();

    std::vector<std::shared_ptr<IDfuDevice>> devices;
    for (const DeviceEntry& entry : watcher.Devices()) {
        devices.push_back(std::make_shared<KV400DfuDevice>(entry.symbolicLink, LogStream()));
    }
    return devices;
}
