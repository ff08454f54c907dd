#include "lab/rig/bus/Bus.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/rig/bus/KernelPort.h"
#include "lab/rig/bus/TransferErrors.h"
#include "lab/rig/bus/VirtualPort.h"
#include "lab/vocabulary/BusEvents.h"

namespace lab::rig {
namespace {

using nlohmann::json;

// WinUSB's limits: above full speed 64 KiB, which no length field exceeds.
bool IsTooLong(const SetupPacket& setup, Speed speed) {
    constexpr std::uint16_t kMostAtFullSpeed = 4096;
    return speed == Speed::Full && setup.length > kMostAtFullSpeed;
}

void Append(std::vector<InterfaceEvent>& to, std::vector<InterfaceEvent> from) {
    std::ranges::move(from, std::back_inserter(to));
}

}  // namespace

Bus::Bus(const BusSettings& settings, Recorder record, Listener listener, QuietTest listenerIsQuiet,
         KernelBus::Asker ask)
    : record_(std::move(record)),
      listener_(std::move(listener)),
      listenerIsQuiet_(std::move(listenerIsQuiet)),
      transferTime_(settings.transferTime),
      skipsWaits_(settings.skipsWaits),
      kernel_(ask ? std::make_unique<KernelBus>(std::move(ask)) : nullptr) {
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

void Bus::TakeDevice(std::string_view path, std::string_view product) {
    const std::lock_guard lock(mutex_);
    TakeLockedDevice(path, product);
}

// A list of devices is taken here, in its turn among what the kernel tells of devices, not by who has asked.
void Bus::TakeAnswer(unsigned question, const json& answer) {
    const std::lock_guard lock(mutex_);
    if (kernel_ == nullptr) {
        return;
    }
    for (const json& device : answer.value("devices", json::array())) {
        TakeLockedDevice(device.at("path").get<std::string>(), device.at("product").get<std::string>());
    }
    kernel_->TakeAnswer(question, answer);
}

void Bus::MeetKernel() {
    std::unique_lock lock(mutex_);
    if (kernel_ != nullptr) {
        static_cast<void>(kernel_->Ask(lock, "devices", json::object()));
    }
}

void Bus::LoseKernel() {
    const std::lock_guard lock(mutex_);
    if (kernel_ != nullptr) {
        kernel_->End();
    }
}

void Bus::Plug(std::size_t camera) {
    const std::lock_guard lock(mutex_);
    VirtualCamera& device = CameraAt(camera);
    AdvanceOne(camera);
    if (IsOnItsWay(At(camera))) {
        throw std::runtime_error("the camera is on the bus, or on its way back to it");
    }
    device.Plug(clock_.NowMs());
    NoteChange(camera, "plugged");
}

void Bus::Unplug(std::size_t camera) {
    const std::lock_guard lock(mutex_);
    VirtualCamera& device = CameraAt(camera);
    Place& place = At(camera);
    AdvanceOne(camera);
    if (!IsOnItsWay(place)) {
        throw std::runtime_error("the camera is not on the bus");
    }
    const bool wasBetweenModes = place.listed.Mode() == BusMode::Absent;
    device.Unplug();
    NoteChange(camera);
    if (wasBetweenModes) {
        RecordCamera(place, "unplugged");
        Append(waiting_, place.listed.GiveUp());
    }
    changed_.notify_all();
}

void Bus::ReplaceCameras(const BusSettings& settings) {
    const std::lock_guard lock(mutex_);
    AdvanceAll();
    if (std::ranges::any_of(places_, [this](const Place& place) { return IsOnItsWay(place); })) {
        throw std::runtime_error("a camera is on the bus, or on its way back to it");
    }
    places_.clear();
    PlaceCameras(settings);
}

void Bus::SetFaults(std::size_t camera, const std::vector<Fault>& faults) {
    const std::lock_guard lock(mutex_);
    VirtualCamera& device = CameraAt(camera);
    AdvanceOne(camera);
    device.SetFaults(faults);
}

json Bus::State(std::size_t camera) {
    const std::lock_guard lock(mutex_);
    const VirtualCamera& device = CameraAt(camera);
    AdvanceOne(camera);
    return CameraState(device, At(camera).listed.Mode());
}

std::vector<std::uint8_t> Bus::Flash(std::size_t camera) {
    const std::lock_guard lock(mutex_);
    return CameraAt(camera).Flash();
}

std::size_t Bus::HeldBytes(const std::function<void()>& look) {
    const std::lock_guard lock(mutex_);
    look();
    return std::accumulate(places_.begin(), places_.end(), std::size_t{0},
                           [](std::size_t bytes, const Place& place) {
                               return bytes + (place.camera == nullptr ? 0 : place.camera->HeldBytes());
                           });
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
    clock_.Skip(std::chrono::milliseconds(ms));
    AdvanceAll();
    changed_.notify_all();
}

void Bus::Rest(std::chrono::milliseconds time) {
    const std::lock_guard lock(mutex_);
    clock_.Skip(time);
    if (NextDeadline()) {
        AdvanceAll();
        changed_.notify_all();
    }
}

void Bus::Freeze() {
    const std::lock_guard lock(mutex_);
    if (skipsWaits_) {
        clock_.Freeze();
    }
}

void Bus::Thaw() {
    const std::lock_guard lock(mutex_);
    if (clock_.Thaw()) {
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
    Append(waiting_, std::move(due->removals));
    late_.erase(due);
    changed_.notify_all();
    changed_.wait(lock, [this] { return ending_ || (waiting_.empty() && !isAnnouncing_); });
}

std::uint64_t Bus::ClockMs() {
    const std::lock_guard lock(mutex_);
    return clock_.NowMs();
}

std::vector<std::wstring> Bus::PresentLinks(const GUID& interfaceClass) {
    const std::lock_guard lock(mutex_);
    std::vector<std::wstring> links;
    for (const Place& place : places_) {
        std::ranges::move(place.listed.PresentLinks(interfaceClass), std::back_inserter(links));
    }
    return links;
}

std::vector<std::wstring> Bus::SourceLinks(SourceKind kind) {
    const std::lock_guard lock(mutex_);
    std::vector<std::wstring> links;
    for (const Place& place : places_) {
        std::ranges::move(place.listed.SourceLinks(kind), std::back_inserter(links));
    }
    return links;
}

std::optional<Presence> Bus::FindSource(std::wstring_view link) {
    const std::lock_guard lock(mutex_);
    for (std::size_t camera = 0; camera < places_.size(); ++camera) {
        if (const ListedCamera& listed = places_[camera].listed; listed.IsSource(link)) {
            return Presence{camera, listed.Stay()};
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
    auto nodes = place->port->Settings().nodes;
    if (!place->port->Settings().hasExtensionUnit) {
        std::erase(nodes, TopologyNode::ExtensionUnit);
    }
    return nodes;
}

std::optional<Presence> Bus::FindDfuDevice(std::wstring_view link) {
    const std::lock_guard lock(mutex_);
    for (std::size_t camera = 0; camera < places_.size(); ++camera) {
        if (const ListedCamera& listed = places_[camera].listed; listed.IsDfuDevice(link)) {
            return Presence{camera, listed.Stay()};
        }
    }
    return std::nullopt;
}

bool Bus::DriverHasStarted(const Presence& presence) {
    const std::lock_guard lock(mutex_);
    const Place* const place = Present(presence, BusMode::Dfu);
    return place != nullptr && place->listed.DriverHasStarted(clock_.NowMs());
}

std::optional<InterfaceDescriptors> Bus::Interfaces(const Presence& presence) {
    std::unique_lock lock(mutex_);
    const Place* const place = Present(presence, BusMode::Dfu);
    if (place == nullptr) {
        return std::nullopt;
    }
    const auto port = place->port;
    return port->Interfaces({lock, clock_.NowMs()});
}

TransferResult Bus::WriteCommand(const Presence& presence, std::span<const std::uint8_t> frame) {
    transferTime_.Spend();
    std::unique_lock lock(mutex_);
    const TransferResult result = TransferWhenRunning(
        presence, lock,
        [&](CameraPort& port, const CameraPort::Turn& turn) { return port.WriteCommand(frame, turn); });
    record_(CommandEvent(frame, PropertyResult(result.end)));
    NoteChange(presence.camera);
    return result;
}

TransferResult Bus::ReadReply(const Presence& presence, std::span<std::uint8_t> reply) {
    transferTime_.Spend();
    std::unique_lock lock(mutex_);
    TransferResult result = TransferWhenRunning(
        presence, lock,
        [&](CameraPort& port, const CameraPort::Turn& turn) { return port.ReadReply(reply, turn); });
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
    const Place* const place = Present(presence, BusMode::Dfu);
    DriverResult result{ERROR_INVALID_PARAMETER};
    if (place == nullptr || !IsTooLong(setup, place->port->Settings().speed)) {
        result = TransferInDfuMode(presence, lock, [&](CameraPort& port, const CameraPort::Turn& turn) {
            return port.ControlTransfer(setup, data, turn);
        });
    }
    record_(TransferEvent(setup, data, result.transferred, result.error, result.tookMs));
    NoteChange(presence.camera);
    lock.unlock();
    SpendWait(result);
    return result;
}

DWORD Bus::SetInterface(const Presence& presence, std::uint8_t number, std::uint8_t setting) {
    std::unique_lock lock(mutex_);
    const DriverResult result =
        TransferInDfuMode(presence, lock, [&](CameraPort& port, const CameraPort::Turn& turn) {
            return port.SetInterface(number, setting, turn);
        });
    NoteChange(presence.camera);
    lock.unlock();
    SpendWait(result);
    return result.error;
}

DriverResult Bus::ReadDescriptor(const Presence& presence, std::uint8_t type, std::uint8_t index,
                                 std::span<std::uint8_t> buffer) {
    std::unique_lock lock(mutex_);
    const DriverResult result =
        TransferInDfuMode(presence, lock, [&](CameraPort& port, const CameraPort::Turn& turn) {
            return port.ReadDescriptor(type, index, buffer, turn);
        });
    record_(DescriptorEvent(type, index, buffer, result.transferred, result.error));
    NoteChange(presence.camera);
    lock.unlock();
    SpendWait(result);
    return result;
}

DWORD Bus::ErrorOfGone(const Presence& presence) {
    const std::lock_guard lock(mutex_);
    return WhyGone(presence);
}

DWORD Bus::WhyGone(const Presence& presence) const {
    if (presence.camera >= places_.size()) {
        return GoneError(std::numeric_limits<std::uint64_t>::max());
    }
    return places_[presence.camera].listed.ErrorOfGone(presence.stay, clock_.NowMs());
}

TransferResult Bus::TransferWhenRunning(const Presence& presence, std::unique_lock<std::mutex>& lock,
                                        const Transfer& transfer) {
    const Place* const place = Present(presence, BusMode::Running);
    if (place == nullptr) {
        return {TransferEnd::Disconnected, 0};
    }
    const auto port = place->port;
    return transfer(*port, {lock, clock_.NowMs()});
}

DriverResult Bus::TransferInDfuMode(const Presence& presence, std::unique_lock<std::mutex>& lock,
                                    const Transfer& transfer) {
    const Place* const place = Present(presence, BusMode::Dfu);
    if (place == nullptr) {
        return {WhyGone(presence)};
    }
    const auto port = place->port;
    const TransferResult result = transfer(*port, {lock, clock_.NowMs()});
    DWORD error = WinUsbError(result.end);
    // Other cameras may have taken the place of these while the lock was given back.
    if (result.end == TransferEnd::Disconnected && presence.camera < places_.size()) {
        error = places_[presence.camera].listed.ErrorOfLeaving(error);
    }
    return {error, result.transferred, result.tookMs};
}

void Bus::SpendWait(const DriverResult& result) {
    const bool hasPassed = kernel_ != nullptr;
    if (result.tookMs == 0 || hasPassed) {
        return;
    }
    if (skipsWaits_) {
        Skip(result.tookMs);
    } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(result.tookMs));
    }
}

void Bus::TakeLockedDevice(std::string_view path, std::string_view product) {
    for (std::size_t camera = 0; camera < places_.size(); ++camera) {
        auto* const port = dynamic_cast<KernelPort*>(places_[camera].port.get());
        if (port != nullptr && port->TakeDevice(path, product)) {
            NoteChange(camera);
        }
    }
}

Bus::Place& Bus::At(std::size_t camera) {
    if (camera >= places_.size()) {
        throw std::runtime_error("there is no camera " + std::to_string(camera));
    }
    return places_[camera];
}

VirtualCamera& Bus::CameraAt(std::size_t camera) {
    VirtualCamera* const device = At(camera).camera;
    if (device == nullptr) {
        throw std::runtime_error("the camera is on another kernel's bus");
    }
    return *device;
}

Bus::Place* Bus::Present(const Presence& presence, BusMode mode) {
    if (presence.camera >= places_.size()) {
        return nullptr;
    }
    AdvanceOne(presence.camera);
    Place& place = places_[presence.camera];
    return place.listed.Stay() == presence.stay && place.listed.Mode() == mode ? &place : nullptr;
}

bool Bus::IsOnItsWay(const Place& place) const {
    return place.listed.Mode() != BusMode::Absent || place.port->NextDeadline();
}

void Bus::PlaceCameras(const BusSettings& settings) {
    for (std::size_t camera = 0; camera < settings.cameras.size(); ++camera) {
        const LinkStyle style =
            camera < settings.linkStyles.size() ? settings.linkStyles[camera] : LinkStyle{};
        const Departure departure =
            camera < settings.departures.size() ? settings.departures[camera] : Departure{};
        const CameraSettings& device = settings.cameras[camera];
        Place place{nullptr, nullptr, ListedCamera(camera, style, departure, device.driverStartMs)};
        if (kernel_ != nullptr) {
            place.port = std::make_shared<KernelPort>(camera, device, *kernel_);
        } else {
            const auto port = std::make_shared<VirtualPort>(device);
            place.camera = &port->Camera();
            place.port = port;
        }
        places_.push_back(std::move(place));
    }
    for (std::size_t camera = 0; camera < settings.startingPlaces.size(); ++camera) {
        PutToStart(camera, settings.startingPlaces[camera]);
    }
}

// Into DFU mode on the way that every camera goes there: the clock moves on meanwhile.
void Bus::PutToStart(std::size_t camera, StartingPlace start) {
    if (start == StartingPlace::Unplugged) {
        return;
    }
    VirtualCamera& device = CameraAt(camera);
    device.Plug(clock_.NowMs());
    NoteChange(camera, "plugged");
    if (start == StartingPlace::Running) {
        return;
    }
    std::array<std::uint8_t, VirtualCamera::kFrameSize> frame{20, 0, 0xAB, 0xCD, 0x1E, 0, 0, 0, 1};
    device.WriteCommand(frame, clock_.NowMs());
    while (const auto due = device.NextDeadline()) {
        const std::uint64_t nowMs = clock_.NowMs();
        clock_.Skip(std::chrono::milliseconds(*due > nowMs ? *due - nowMs : 0));
        AdvanceOne(camera);
    }
}

void Bus::AdvanceAll() {
    for (std::size_t camera = 0; camera < places_.size(); ++camera) {
        AdvanceOne(camera);
    }
}

// Step by step, so that a camera that left and came back while the bus thread slept is seen to do both.
void Bus::AdvanceOne(std::size_t camera) {
    const std::uint64_t nowMs = clock_.NowMs();
    CameraPort& port = *places_[camera].port;
    std::optional<std::uint64_t> previous;
    for (auto due = port.NextDeadline(); due && *due <= nowMs && due != previous;
         previous = due, due = port.NextDeadline()) {
        port.Advance(*due);
        NoteChange(camera);
    }
    port.Advance(nowMs);
    NoteChange(camera);
}

void Bus::NoteChange(std::size_t camera, const char* changeWhenPresent) {
    if (camera >= places_.size()) {
        return;
    }
    Place& place = places_[camera];
    ListedCamera& listed = place.listed;
    const BusMode mode = place.port->Mode();
    changed_.notify_all();
    if (mode == listed.Mode()) {
        return;
    }
    if (listed.Mode() != BusMode::Absent) {
        const bool comesBack = place.port->NextDeadline() || mode != BusMode::Absent;
        RecordCamera(place, comesBack ? "left" : "unplugged");
        Append(waiting_, listed.Leave(comesBack, clock_.NowMs()));
    }
    if (mode != BusMode::Absent) {
        auto announced = listed.Arrive(mode, ++lastStay_, clock_.NowMs());
        const char* const change = mode == BusMode::Dfu ? "dfu" : "running";
        RecordCamera(place, changeWhenPresent != nullptr ? changeWhenPresent : change);
        if (!announced.lateRemovals.empty()) {
            late_.push_back({announced.areDueAtAWait ? announced.arrivals.front().link : L"",
                             std::move(announced.lateRemovals)});
        }
        Append(waiting_, std::move(announced.arrivals));
    }
}

void Bus::RecordCamera(const Place& place, const char* change) {
    if (place.camera != nullptr) {
        const auto number = static_cast<std::size_t>(&place - places_.data());
        record_(CameraEvent(number, change, place.camera->Version()));
    }
}

std::optional<std::uint64_t> Bus::NextDeadline() const {
    std::optional<std::uint64_t> next;
    for (const Place& place : places_) {
        const auto due = place.port->NextDeadline();
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
                Append(waiting_, std::move(late.removals));
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
        if (due && !clock_.IsFrozen()) {
            const std::uint64_t nowMs = clock_.NowMs();
            changed_.wait_for(lock, std::chrono::milliseconds(std::max(*due, nowMs + 1) - nowMs));
        } else {
            changed_.wait(lock);
        }
    }
}

}  // namespace lab::rig
