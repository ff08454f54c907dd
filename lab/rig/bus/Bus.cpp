#include "lab/rig/bus/Bus.h"

#include <dbt.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/rig/bus/InterfaceClasses.h"
#include "lab/rig/bus/TransferErrors.h"
#include "lab/vocabulary/BusEvents.h"

namespace lab::rig {
namespace {

using nlohmann::json;

// WinUSB's limits: above full speed 64 KiB, which no length field exceeds.
bool IsTooLong(const SetupPacket& setup, Speed speed) {
    constexpr std::uint16_t kMostAtFullSpeed = 4096;
    return speed == Speed::Full && setup.length > kMostAtFullSpeed;
}

DriverResult Told(const TransferResult& result, const Departure& departure) {
    const DWORD error = WinUsbError(result.end);
    return {result.end == TransferEnd::Disconnected ? departure.transferError.value_or(error) : error,
            result.transferred, result.tookMs};
}

// The interfaces of a camera in its mode, as Windows announces them.
std::vector<InterfaceEvent> Events(DWORD type, BusMode mode, const DeviceLinks& links,
                                   const LinkStyle& style) {
    const auto event = [&](const GUID& interfaceClass, const std::wstring& link) {
        return InterfaceEvent{type, interfaceClass, Announced(link, style.announcedIn)};
    };
    if (mode == BusMode::Dfu) {
        return {event(kUsbDeviceClass, links.DfuUsb())};
    }
    return {event(kUsbDeviceClass, links.RunningUsb()), event(kSensorCameraClass, links.SensorCamera()),
            event(kVideoCameraClass, links.VideoCamera())};
}

void MoveTo(std::vector<InterfaceEvent>& to, std::vector<InterfaceEvent>& from) {
    std::ranges::move(from, std::back_inserter(to));
    from.clear();
}

}  // namespace

Bus::Bus(const BusSettings& settings, Recorder record, Listener listener, QuietTest listenerIsQuiet)
    : record_(std::move(record)),
      listener_(std::move(listener)),
      listenerIsQuiet_(std::move(listenerIsQuiet)),
      transferTime_(settings.transferTime),
      skipsWaits_(settings.skipsWaits) {
    PlaceCameras(settings);
    thread_ = std::thread(&Bus::Run, this);
}

Bus::~Bus() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void Bus::Plug(std::size_t camera) {
    const std::lock_guard lock(mutex_);
    Place& place = At(camera);
    AdvanceOne(camera, NowMs());
    if (place.mode != BusMode::Absent || place.camera.NextDeadline()) {
        throw std::runtime_error("the camera is on the bus, or on its way back to it");
    }
    place.camera.Plug(NowMs());
    NoteChange(camera, "plugged");
}

void Bus::Unplug(std::size_t camera) {
    const std::lock_guard lock(mutex_);
    Place& place = At(camera);
    AdvanceOne(camera, NowMs());
    if (place.mode == BusMode::Absent && !place.camera.NextDeadline()) {
        throw std::runtime_error("the camera is not on the bus");
    }
    const bool wasBetweenModes = place.mode == BusMode::Absent;
    place.camera.Unplug();
    NoteChange(camera);
    if (wasBetweenModes) {
        RecordCamera(camera, "unplugged");
        MoveTo(waiting_, place.removals);
    }
    changed_.notify_all();
}

void Bus::ReplaceCameras(const BusSettings& settings) {
    const std::lock_guard lock(mutex_);
    AdvanceAll();
    for (const Place& place : places_) {
        if (place.mode != BusMode::Absent || place.camera.NextDeadline()) {
            throw std::runtime_error("a camera is on the bus, or on its way back to it");
        }
    }
    places_.clear();
    PlaceCameras(settings);
}

json Bus::State(std::size_t camera) {
    const std::lock_guard lock(mutex_);
    const Place& place = At(camera);
    AdvanceOne(camera, NowMs());
    return CameraState(place.camera, place.mode);
}

std::vector<std::uint8_t> Bus::Flash(std::size_t camera) {
    const std::lock_guard lock(mutex_);
    return At(camera).camera.Flash();
}

std::size_t Bus::HeldBytes(const std::function<void()>& look) {
    const std::lock_guard lock(mutex_);
    look();
    return std::accumulate(
        places_.begin(), places_.end(), std::size_t{0},
        [](std::size_t bytes, const Place& place) { return bytes + place.camera.HeldBytes(); });
}

void Bus::Announce(InterfaceEvent event) {
    const std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(event));
    changed_.notify_all();
}

void Bus::WhenSettled(std::function<void()> settled) {
    const std::lock_guard lock(mutex_);
    settled_.push_back(std::move(settled));
    changed_.notify_all();
}

void Bus::Wake() {
    const std::lock_guard lock(mutex_);
    changed_.notify_all();
}

void Bus::Skip(std::uint32_t ms) {
    const std::lock_guard lock(mutex_);
    skipped_ += std::chrono::milliseconds(ms);
    AdvanceAll();
    changed_.notify_all();
}

void Bus::Freeze() {
    const std::lock_guard lock(mutex_);
    if (skipsWaits_ && !frozenSince_) {
        frozenSince_ = std::chrono::steady_clock::now();
    }
}

void Bus::Thaw() {
    const std::lock_guard lock(mutex_);
    if (frozenSince_) {
        frozen_ += std::chrono::steady_clock::now() - *frozenSince_;
        frozenSince_.reset();
        changed_.notify_all();
    }
}

void Bus::ServiceWaits(std::wstring_view arrival) {
    std::unique_lock lock(mutex_);
    const auto due = std::ranges::find_if(late_, [&](const LateRemovals& late) {
        return !late.arrival.empty() && SameLink(late.arrival, arrival);
    });
    if (due == late_.end()) {
        return;
    }
    MoveTo(waiting_, due->removals);
    late_.erase(due);
    changed_.notify_all();
    changed_.wait(lock, [this] { return ending_ || (waiting_.empty() && !isAnnouncing_); });
}

std::uint64_t Bus::ClockMs() {
    const std::lock_guard lock(mutex_);
    return NowMs();
}

std::vector<std::wstring> Bus::PresentLinks(const GUID& interfaceClass) {
    const std::lock_guard lock(mutex_);
    std::vector<std::wstring> links;
    for (const Place& place : places_) {
        if (place.mode == BusMode::Dfu && interfaceClass == kUsbDeviceClass) {
            links.push_back(Announced(place.links.DfuUsb(), place.style.announcedIn));
        } else if (place.mode == BusMode::Running && interfaceClass == kUsbDeviceClass) {
            links.push_back(Announced(place.links.RunningUsb(), place.style.announcedIn));
        } else if (place.mode == BusMode::Running && interfaceClass == kSensorCameraClass) {
            links.push_back(Announced(place.links.SensorCamera(), place.style.announcedIn));
        } else if (place.mode == BusMode::Running && interfaceClass == kVideoCameraClass) {
            links.push_back(Announced(place.links.VideoCamera(), place.style.announcedIn));
        }
    }
    return links;
}

std::vector<std::wstring> Bus::SourceLinks(SourceKind kind) {
    const std::lock_guard lock(mutex_);
    std::vector<std::wstring> links;
    for (const Place& place : places_) {
        if (place.mode != BusMode::Running) {
            continue;
        }
        if (kind == SourceKind::SensorCamera || place.style.isListedTwice) {
            links.push_back(place.links.SensorCamera());
        }
        if (kind == SourceKind::Capture) {
            const bool asCapture = place.style.listed == LinkStyle::Listed::AsCapture;
            links.push_back(asCapture ? place.links.Capture() : place.links.VideoCamera());
        }
    }
    return links;
}

std::optional<Presence> Bus::FindSource(std::wstring_view link) {
    const std::lock_guard lock(mutex_);
    for (std::size_t camera = 0; camera < places_.size(); ++camera) {
        const Place& place = places_[camera];
        const bool matches = SameLink(link, place.links.SensorCamera()) ||
                             SameLink(link, place.links.VideoCamera()) ||
                             SameLink(link, place.links.Capture());
        if (matches && place.mode == BusMode::Running) {
            return Presence{camera, place.stay};
        }
    }
    return std::nullopt;
}

std::vector<TopologyNode> Bus::Nodes(const Presence& presence) {
    const std::lock_guard lock(mutex_);
    const Place* const place = Present(presence, BusMode::Running);
    if (place == nullptr) {
        return {};
    }
    auto nodes = place->camera.Settings().nodes;
    if (!place->camera.Settings().hasExtensionUnit) {
        std::erase(nodes, TopologyNode::ExtensionUnit);
    }
    return nodes;
}

std::optional<Presence> Bus::FindDfuDevice(std::wstring_view link) {
    const std::lock_guard lock(mutex_);
    for (std::size_t camera = 0; camera < places_.size(); ++camera) {
        const Place& place = places_[camera];
        if (place.mode == BusMode::Dfu && SameLink(link, place.links.DfuUsb())) {
            return Presence{camera, place.stay};
        }
    }
    return std::nullopt;
}

bool Bus::DriverHasStarted(const Presence& presence) {
    const std::lock_guard lock(mutex_);
    const Place* const place = Present(presence, BusMode::Dfu);
    return place != nullptr && place->opensAtMs && *place->opensAtMs <= NowMs();
}

std::optional<InterfaceDescriptors> Bus::Interfaces(const Presence& presence) {
    const std::lock_guard lock(mutex_);
    const Place* const place = Present(presence, BusMode::Dfu);
    if (place == nullptr) {
        return std::nullopt;
    }
    return place->camera.Interfaces();
}

TransferResult Bus::WriteCommand(const Presence& presence, std::span<const std::uint8_t> frame) {
    transferTime_.Spend();
    const std::lock_guard lock(mutex_);
    TransferResult result{TransferEnd::Disconnected, 0};
    if (Place* const place = Present(presence, BusMode::Running)) {
        result = place->camera.WriteCommand(frame, NowMs());
    }
    record_(CommandEvent(frame, PropertyResult(result.end)));
    NoteChange(presence.camera);
    return result;
}

TransferResult Bus::ReadReply(const Presence& presence, std::span<std::uint8_t> reply) {
    transferTime_.Spend();
    const std::lock_guard lock(mutex_);
    TransferResult result{TransferEnd::Disconnected, 0};
    if (Place* const place = Present(presence, BusMode::Running)) {
        result = place->camera.ReadReply(reply, NowMs());
    }
    if (result.end == TransferEnd::Ok && result.transferred < reply.size()) {
        result.end = TransferEnd::Stall;
    }
    record_(ReplyEvent(reply.first(result.transferred), PropertyResult(result.end)));
    NoteChange(presence.camera);
    return result;
}

DriverResult Bus::ControlTransfer(const Presence& presence, const SetupPacket& setup,
                                  std::span<std::uint8_t> data) {
    transferTime_.Spend();
    std::unique_lock lock(mutex_);
    Place* const place = Present(presence, BusMode::Dfu);
    DriverResult result;
    if (place == nullptr) {
        result.error = WhyGone(presence);
    } else if (IsTooLong(setup, place->camera.Settings().speed)) {
        result.error = ERROR_INVALID_PARAMETER;
    } else {
        result = Told(place->camera.ControlTransfer(setup, data, NowMs()), place->departure);
    }
    record_(TransferEvent(setup, data, result.transferred, result.error, result.tookMs));
    NoteChange(presence.camera);
    lock.unlock();
    SpendWait(result);
    return result;
}

DWORD Bus::SetInterface(const Presence& presence) {
    std::unique_lock lock(mutex_);
    DriverResult result;
    if (Place* const place = Present(presence, BusMode::Dfu)) {
        result = Told(place->camera.SetInterface(NowMs()), place->departure);
    } else {
        result.error = WhyGone(presence);
    }
    NoteChange(presence.camera);
    lock.unlock();
    SpendWait(result);
    return result.error;
}

DriverResult Bus::ReadDescriptor(const Presence& presence, std::uint8_t type, std::uint8_t index,
                                 std::span<std::uint8_t> buffer) {
    std::unique_lock lock(mutex_);
    Place* const place = Present(presence, BusMode::Dfu);
    DriverResult result;
    if (place == nullptr) {
        result.error = WhyGone(presence);
    } else {
        result = Told(place->camera.ReadDescriptor(type, index, buffer, NowMs()), place->departure);
    }
    record_(DescriptorEvent(type, index, buffer.size(), result.transferred, result.error));
    NoteChange(presence.camera);
    lock.unlock();
    SpendWait(result);
    return result;
}

DWORD Bus::ErrorOfGone(const Presence& presence) {
    const std::lock_guard lock(mutex_);
    return WhyGone(presence);
}

std::uint64_t Bus::NowMs() const {
    const auto passed = frozenSince_.value_or(std::chrono::steady_clock::now()) - begin_ - frozen_;
    return static_cast<std::uint64_t>(
        (std::chrono::duration_cast<std::chrono::milliseconds>(passed) + skipped_).count());
}

// A camera that is back is another device.
DWORD Bus::WhyGone(const Presence& presence) const {
    constexpr std::uint64_t kLong = std::numeric_limits<std::uint64_t>::max();
    if (presence.camera >= places_.size()) {
        return GoneError(kLong);
    }
    const Place& place = places_[presence.camera];
    const bool isLast = place.stay == presence.stay && place.leftAtMs;
    return place.departure.transferError.value_or(GoneError(isLast ? NowMs() - *place.leftAtMs : kLong));
}

void Bus::SpendWait(const DriverResult& result) {
    if (result.tookMs == 0) {
        return;
    }
    if (skipsWaits_) {
        Skip(result.tookMs);
    } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(result.tookMs));
    }
}

Bus::Place& Bus::At(std::size_t camera) {
    if (camera >= places_.size()) {
        throw std::runtime_error("there is no camera " + std::to_string(camera));
    }
    return places_[camera];
}

Bus::Place* Bus::Present(const Presence& presence, BusMode mode) {
    if (presence.camera >= places_.size()) {
        return nullptr;
    }
    AdvanceOne(presence.camera, NowMs());
    Place& place = places_[presence.camera];
    return place.stay == presence.stay && place.mode == mode ? &place : nullptr;
}

void Bus::PlaceCameras(const BusSettings& settings) {
    for (std::size_t camera = 0; camera < settings.cameras.size(); ++camera) {
        const LinkStyle style =
            camera < settings.linkStyles.size() ? settings.linkStyles[camera] : LinkStyle{};
        const Departure departure =
            camera < settings.departures.size() ? settings.departures[camera] : Departure{};
        places_.push_back(
            {VirtualCamera(settings.cameras[camera]), DeviceLinks(camera, style), style, departure});
    }
}

void Bus::AdvanceAll() {
    const std::uint64_t nowMs = NowMs();
    for (std::size_t camera = 0; camera < places_.size(); ++camera) {
        AdvanceOne(camera, nowMs);
    }
}

// Step by step, so that a camera that left and came back while the bus thread slept is seen to do both.
void Bus::AdvanceOne(std::size_t camera, std::uint64_t nowMs) {
    VirtualCamera& device = places_[camera].camera;
    std::optional<std::uint64_t> previous;
    for (auto due = device.NextDeadline(); due && *due <= nowMs && due != previous;
         previous = due, due = device.NextDeadline()) {
        device.Advance(*due);
        NoteChange(camera);
    }
    device.Advance(nowMs);
    NoteChange(camera);
}

void Bus::NoteChange(std::size_t camera, const char* changeWhenPresent) {
    if (camera >= places_.size()) {
        return;
    }
    Place& place = places_[camera];
    const BusMode mode = place.camera.Mode();
    if (mode == place.mode) {
        changed_.notify_all();
        return;
    }
    if (place.mode != BusMode::Absent) {
        const bool comesBack = place.camera.NextDeadline() || mode != BusMode::Absent;
        RecordCamera(camera, comesBack ? "left" : "unplugged");
        place.leftAtMs = NowMs();
        auto removals = Events(DBT_DEVICEREMOVECOMPLETE, place.mode, place.links, place.style);
        const bool atOnce = !comesBack || place.departure.notices == Departure::Notices::WithTheLeaving;
        MoveTo(atOnce ? waiting_ : place.removals, removals);
    }
    place.mode = mode;
    if (mode != BusMode::Absent) {
        place.stay = ++lastStay_;
        place.leftAtMs.reset();
        place.opensAtMs = place.camera.Settings().driverStartMs;
        if (place.opensAtMs) {
            *place.opensAtMs += NowMs();
        }
        const char* const change = mode == BusMode::Dfu ? "dfu" : "running";
        RecordCamera(camera, changeWhenPresent != nullptr ? changeWhenPresent : change);
        auto arrivals = Events(DBT_DEVICEARRIVAL, mode, place.links, place.style);
        if (!place.removals.empty()) {
            const bool early = place.departure.notices == Departure::Notices::WhileTheArrivalIsHandled;
            late_.push_back({early ? arrivals.front().link : L"", std::exchange(place.removals, {})});
        }
        MoveTo(waiting_, arrivals);
    }
    changed_.notify_all();
}

void Bus::RecordCamera(std::size_t camera, const char* change) {
    record_(CameraEvent(camera, change, places_[camera].camera.Version()));
}

std::optional<std::uint64_t> Bus::NextDeadline() const {
    std::optional<std::uint64_t> next;
    for (const Place& place : places_) {
        const auto due = place.camera.NextDeadline();
        if (due && (!next || *due < *next)) {
            next = due;
        }
    }
    return next;
}

void Bus::AnswerWhenSettled() {
    if (settled_.empty() || NextDeadline() || !listenerIsQuiet_()) {
        return;
    }
    for (const auto& settled : std::exchange(settled_, {})) {
        settled();
    }
}

void Bus::Run() {
    std::unique_lock lock(mutex_);
    while (!ending_) {
        AdvanceAll();
        if (waiting_.empty() && !late_.empty() && listenerIsQuiet_()) {
            for (LateRemovals& late : std::exchange(late_, {})) {
                MoveTo(waiting_, late.removals);
            }
        }
        if (!waiting_.empty()) {
            const auto events = std::exchange(waiting_, {});
            isAnnouncing_ = true;
            lock.unlock();
            std::ranges::for_each(events, listener_);
            lock.lock();
            isAnnouncing_ = false;
            changed_.notify_all();
            continue;
        }
        AnswerWhenSettled();
        const auto due = NextDeadline();
        if (due && !frozenSince_) {
            changed_.wait_for(lock, std::chrono::milliseconds(std::max(*due, NowMs() + 1) - NowMs()));
        } else {
            changed_.wait(lock);
        }
    }
}

}  // namespace lab::rig
