#include "lab/rig/bus/ListedCamera.h"

#include <dbt.h>

#include <limits>
#include <utility>

#include "lab/rig/bus/InterfaceClasses.h"
#include "lab/rig/bus/TransferErrors.h"

namespace lab::rig {

ListedCamera::ListedCamera(std::size_t camera, const LinkStyle& style, const Departure& departure,
                           std::optional<std::uint32_t> driverStartMs)
    : links_(camera, style), style_(style), departure_(departure), driverStartMs_(driverStartMs) {}

ListedCamera::Announcements ListedCamera::Arrive(BusMode mode, unsigned stay, std::uint64_t nowMs) {
    mode_ = mode;
    stay_ = stay;
    leftAtMs_.reset();
    opensAtMs_ = driverStartMs_;
    if (opensAtMs_) {
        *opensAtMs_ += nowMs;
    }
    return {Events(DBT_DEVICEARRIVAL), GiveUp(),
            departure_.notices == Departure::Notices::WhileTheArrivalIsHandled};
}

std::vector<InterfaceEvent> ListedCamera::Leave(bool comesBack, std::uint64_t nowMs) {
    auto removals = Events(DBT_DEVICEREMOVECOMPLETE);
    mode_ = BusMode::Absent;
    leftAtMs_ = nowMs;
    if (comesBack && departure_.notices != Departure::Notices::WithTheLeaving) {
        heldBack_ = std::exchange(removals, {});
    }
    return removals;
}

std::vector<InterfaceEvent> ListedCamera::GiveUp() {
    return std::exchange(heldBack_, {});
}

bool ListedCamera::DriverHasStarted(std::uint64_t nowMs) const {
    return mode_ == BusMode::Dfu && opensAtMs_ && *opensAtMs_ <= nowMs;
}

std::vector<std::wstring> ListedCamera::PresentLinks(const GUID& interfaceClass) const {
    std::vector<std::wstring> links;
    if (mode_ == BusMode::Absent) {
        return links;
    }
    for (const InterfaceEvent& event : Events(DBT_DEVICEARRIVAL)) {
        if (event.interfaceClass == interfaceClass) {
            links.push_back(event.link);
        }
    }
    return links;
}

std::vector<std::wstring> ListedCamera::SourceLinks(SourceKind kind) const {
    std::vector<std::wstring> links;
    if (mode_ != BusMode::Running) {
        return links;
    }
    if (kind == SourceKind::SensorCamera || style_.isListedTwice) {
        links.push_back(links_.SensorCamera());
    }
    if (kind == SourceKind::Capture) {
        const bool asCapture = style_.listed == LinkStyle::Listed::AsCapture;
        links.push_back(asCapture ? links_.Capture() : links_.VideoCamera());
    }
    return links;
}

bool ListedCamera::IsSource(std::wstring_view link) const {
    return mode_ == BusMode::Running &&
           (SameLink(link, links_.SensorCamera()) || SameLink(link, links_.VideoCamera()) ||
            SameLink(link, links_.Capture()));
}

bool ListedCamera::IsDfuDevice(std::wstring_view link) const {
    return mode_ == BusMode::Dfu && SameLink(link, links_.DfuUsb());
}

// A camera that is back is another device.
DWORD ListedCamera::ErrorOfGone(unsigned stay, std::uint64_t nowMs) const {
    constexpr std::uint64_t kLong = std::numeric_limits<std::uint64_t>::max();
    const bool isLast = stay_ == stay && leftAtMs_;
    return departure_.transferError.value_or(GoneError(isLast ? nowMs - *leftAtMs_ : kLong));
}

// The interfaces of the camera in its mode, as Windows announces them.
std::vector<InterfaceEvent> ListedCamera::Events(DWORD type) const {
    const auto event = [&](const GUID& interfaceClass, const std::wstring& link) {
        return InterfaceEvent{type, interfaceClass, Announced(link, style_.announcedIn)};
    };
    if (mode_ == BusMode::Dfu) {
        return {event(kUsbDeviceClass, links_.DfuUsb())};
    }
    return {event(kUsbDeviceClass, links_.RunningUsb()), event(kSensorCameraClass, links_.SensorCamera()),
            event(kVideoCameraClass, links_.VideoCamera())};
}

}  // namespace lab::rig
