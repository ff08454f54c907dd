#include "discovery/DeviceInterfaceWatcher.h"

#include <algorithm>
#include <cstddef>
#include <cwchar>
#include <utility>

namespace {

constexpr GUID kUsbDeviceInterface{
    0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};

constexpr int kWaitAttempts = 10;
constexpr DWORD kShortestDividedTimeoutMs = 110;
constexpr DWORD kShortestPeriodMs = 10;

constexpr DWORD kDeviceFound = 0;
constexpr DWORD kDeviceNotFound = 2;

DeviceFilter FoldedFilter(std::wstring_view vendor, std::wstring_view product) {
    return DeviceFilter{ToLowerCopy(vendor), ToLowerCopy(product), {}};
}

// The links of the interfaces present, each with its terminator, ended by a further one.
std::vector<wchar_t> PresentInterfaces() {
    GUID interfaceClass = kUsbDeviceInterface;
    ULONG size = 0;
    CM_Get_Device_Interface_List_SizeW(&size, &interfaceClass, nullptr, CM_GET_DEVICE_INTERFACE_LIST_PRESENT);
    if (size < 2) {
        return {};
    }
    std::vector<wchar_t> links(size);
    CM_Get_Device_Interface_ListW(&interfaceClass, nullptr, links.data(), size,
                                  CM_GET_DEVICE_INTERFACE_LIST_PRESENT);
    return links;
}

}  // namespace

DeviceInterfaceWatcher::DeviceInterfaceWatcher(std::wstring name, std::wstring_view vendor,
                                               std::wstring_view product)
    : name_(std::move(name)),
      arrivalEvent_(CreateEventW(nullptr, TRUE, FALSE, name_.c_str())),
      removalEvent_(CreateEventW(nullptr, TRUE, FALSE, name_.c_str())) {
    filters_.push_back(FoldedFilter(vendor, product));

    CM_NOTIFY_FILTER filter{};
    static_assert(sizeof filter == 416);
    filter.cbSize = sizeof filter;
    filter.FilterType = CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE;
    filter.u.DeviceInterface.ClassGuid = kUsbDeviceInterface;
    CM_Register_Notification(&filter, this, OnNotification, &notification_);
}

DeviceInterfaceWatcher::~DeviceInterfaceWatcher() {
    {
        // A callback that is still running finds no event to signal instead of a closed one.
        const std::scoped_lock guard(lock_);
        ResetEvent(arrivalEvent_.Get());
        arrivalEvent_.Reset();
    }
    if (notification_ != nullptr) {
        CM_Unregister_Notification(notification_);
    }
}

void DeviceInterfaceWatcher::AddFilter(std::wstring_view vendor, std::wstring_view product) {
    const std::scoped_lock guard(lock_);
    filters_.push_back(FoldedFilter(vendor, product));
}

void DeviceInterfaceWatcher::Refresh() {
    const std::scoped_lock guard(lock_);
    devices_.clear();
    ResetEvent(arrivalEvent_.Get());

    std::vector<wchar_t> links = PresentInterfaces();
    FoldToLower(links);
    std::wstring_view rest(links.data(), links.size());
    while (!rest.empty() && rest.front() != L'\0') {
        const std::wstring_view link = rest.substr(0, rest.find(L'\0'));
        if (MatchesFilters(link, filters_)) {
            Add(std::wstring(link));
        }
        rest.remove_prefix(std::min(link.size() + 1, rest.size()));
    }
}

DWORD DeviceInterfaceWatcher::WaitForDevice(DWORD timeoutMs, std::wstring_view foldedLink) {
    const DWORD period =
        timeoutMs < kShortestDividedTimeoutMs ? kShortestPeriodMs : timeoutMs / kWaitAttempts;
    for (int attempt = 0; attempt < kWaitAttempts; ++attempt) {
        Refresh();
        if (WaitForSingleObject(arrivalEvent_.Get(), period) != WAIT_OBJECT_0) {
            continue;
        }
        if (Contains(foldedLink)) {
            return kDeviceFound;
        }
        Sleep(period);
    }
    return kDeviceNotFound;
}

std::vector<DeviceEntry> DeviceInterfaceWatcher::Devices() const {
    const std::scoped_lock guard(lock_);
    return devices_;
}

DWORD CALLBACK DeviceInterfaceWatcher::OnNotification(HCMNOTIFICATION, PVOID context, CM_NOTIFY_ACTION action,
                                                      PCM_NOTIFY_EVENT_DATA eventData, DWORD eventDataSize) {
    if (action != CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL &&
        action != CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL) {
        return ERROR_SUCCESS;
    }
    if (eventData == nullptr || eventData->FilterType != CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE) {
        return ERROR_SUCCESS;
    }
    // The link ends at its terminator, or where the record ends.
    const wchar_t* const text = eventData->u.DeviceInterface.SymbolicLink;
    constexpr std::size_t kLinkOffset = offsetof(CM_NOTIFY_EVENT_DATA, u.DeviceInterface.SymbolicLink);
    const std::size_t capacity =
        eventDataSize > kLinkOffset ? (eventDataSize - kLinkOffset) / sizeof(wchar_t) : 0;
    const std::wstring_view link(text, wcsnlen(text, capacity));

    auto& watcher = *static_cast<DeviceInterfaceWatcher*>(context);
    if (action == CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL) {
        watcher.OnArrival(link);
    } else {
        watcher.OnRemoval(link);
    }
    return ERROR_SUCCESS;
}

void DeviceInterfaceWatcher::OnArrival(std::wstring_view link) {
    std::wstring folded = ToLowerCopy(link);
    const std::scoped_lock guard(lock_);
    if (MatchesFilters(folded, filters_)) {
        Add(std::move(folded));
    }
}

void DeviceInterfaceWatcher::OnRemoval(std::wstring_view link) {
    const std::wstring folded = ToLowerCopy(link);
    const std::scoped_lock guard(lock_);
    if (!MatchesFilters(folded, filters_)) {
        return;
    }
    const auto entry = std::find_if(devices_.begin(), devices_.end(), [&folded](const DeviceEntry& device) {
        return device.symbolicLink == folded;
    });
    if (entry != devices_.end()) {
        devices_.erase(entry);
    }
    SetEvent(removalEvent_);
}

void DeviceInterfaceWatcher::Add(std::wstring foldedLink) {
    const InterfaceKind kind = ExtractInterfaceKind(foldedLink);
    std::wstring instancePart = ExtractInstancePart(foldedLink);
    devices_.push_back(DeviceEntry{std::move(foldedLink), std::move(instancePart), kind});
    if (arrivalEvent_) {
        SetEvent(arrivalEvent_.Get());
    }
}

bool DeviceInterfaceWatcher::Contains(std::wstring_view foldedLink) const {
    const std::scoped_lock guard(lock_);
    return std::any_of(devices_.begin(), devices_.end(),
                       [foldedLink](const DeviceEntry& device) { return device.symbolicLink == foldedLink; });
}
