#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "lab/camera/VirtualCamera.h"
#include "lab/rig/bus/BusSettings.h"
#include "lab/rig/bus/DeviceLinks.h"
#include "lab/rig/bus/InterfaceEvent.h"
#include "lab/rig/bus/TransferTime.h"

namespace lab::rig {

// One stay of a camera on the bus, from an arrival to the removal that ends it. What was opened during one
// stay does not reach the camera in the next.
struct Presence {
    std::size_t camera = 0;
    unsigned stay = 0;

    bool operator==(const Presence&) const = default;
};

// The ways in which a running camera's video function is listed.
enum class SourceKind { SensorCamera, Capture };

// The interface descriptors of a camera in DFU mode.
using InterfaceDescriptors = std::vector<std::array<std::uint8_t, 9>>;

// Owns the virtual cameras and their time. A thread of its own makes what is due happen and announces, one
// after the other and in the order in which Windows does, what arrives and what leaves. All functions may be
// called on any thread; everything that crosses the bus is recorded in the order in which it crosses.
class Bus {
  public:
    using Recorder = std::function<void(const nlohmann::json& event)>;
    // Called on the bus thread with no lock held, so that it may call whom it likes.
    using Listener = std::function<void(const InterfaceEvent&)>;
    // Whether everything that the listener began is over. Called with the bus locked: must not call the bus.
    using QuietTest = std::function<bool()>;

    Bus(const BusSettings& settings, Recorder record, Listener listener, QuietTest listenerIsQuiet);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // Commands. They throw std::runtime_error when there is no such camera, or when it is where it is to go.
    void Plug(std::size_t camera);
    void Unplug(std::size_t camera);
    // Other cameras take the place of these, all unplugged; refused while one is on the bus. What was opened
    // on the cameras before reaches none of the new ones.
    void ReplaceCameras(const BusSettings& settings);
    [[nodiscard]] nlohmann::json State(std::size_t camera);
    [[nodiscard]] std::vector<std::uint8_t> Flash(std::size_t camera);
    // Bytes of this process's memory that the cameras' flash takes while `look` is called: nothing crosses
    // the bus meanwhile.
    [[nodiscard]] std::size_t HeldBytes(const std::function<void()>& look);
    // Puts an event behind those that wait to be announced.
    void Announce(InterfaceEvent event);
    // Calls `settled` once, on the bus thread with the bus locked, when nothing waits to be announced or to
    // happen.
    void WhenSettled(std::function<void()> settled);
    // Has the thread look again whether things have settled.
    void Wake();

    // Moves the clock on, and makes what is due then happen. The cameras' times are those of this
    // clock; so are the service's when it is told ClockMs().
    void Skip(std::uint32_t ms);
    // Where waits are skipped, the clock stands still while the service handles a control, but for what it
    // skips: so a scenario's times do not depend on how busy the machine is.
    void Freeze();
    void Thaw();
    // The clock, in milliseconds since the run began.
    [[nodiscard]] std::uint64_t ClockMs();

    // The links of the interfaces that are present in this class.
    [[nodiscard]] std::vector<std::wstring> PresentLinks(const GUID& interfaceClass);
    // Links of the running cameras' sources.
    [[nodiscard]] std::vector<std::wstring> SourceLinks(SourceKind kind);
    [[nodiscard]] std::optional<Presence> FindSource(std::wstring_view link);
    // The nodes of the running camera's topology; none when that stay is over.
    [[nodiscard]] std::vector<TopologyNode> Nodes(const Presence& presence);
    [[nodiscard]] std::optional<Presence> FindDfuDevice(std::wstring_view link);
    // Whether its driver opens it already; false, too, when that stay is over.
    [[nodiscard]] bool DriverHasStarted(const Presence& presence);
    // As the driver has read them; empty when that stay is over.
    [[nodiscard]] std::optional<InterfaceDescriptors> Interfaces(const Presence& presence);

    // Transfers; Disconnected when that stay is over. data.size() is at least setup.length.
    TransferResult WriteCommand(const Presence& presence, std::span<const std::uint8_t> frame);
    TransferResult ReadReply(const Presence& presence, std::span<std::uint8_t> reply);
    TransferResult ControlTransfer(const Presence& presence, const SetupPacket& setup,
                                   std::span<std::uint8_t> data);

    // SET_INTERFACE, as the host's driver sends it.
    TransferResult SetInterface(const Presence& presence);

    // A descriptor read over the bus.
    TransferResult ReadDescriptor(const Presence& presence, std::uint8_t type, std::uint8_t index,
                                  std::span<std::uint8_t> buffer);

  private:
    struct Place {
        VirtualCamera camera;
        DeviceLinks links;
        LinkStyle style;
        BusMode mode = BusMode::Absent;  // as last announced
        unsigned stay = 0;
        std::optional<std::uint64_t> opensAtMs = {};  // in DFU mode
    };

    [[nodiscard]] std::uint64_t NowMs() const;
    Place& At(std::size_t camera);
    Place* Present(const Presence& presence, BusMode mode);
    // The host waits for an answer that comes late, or never. Called with no lock held.
    void SpendWait(const TransferResult& result);
    void PlaceCameras(const BusSettings& settings);
    void AdvanceAll();
    void AdvanceOne(std::size_t camera, std::uint64_t nowMs);
    void NoteChange(std::size_t camera, const char* changeWhenPresent = nullptr);
    void QueueArrival(const Place& place);
    void QueueRemoval(const Place& place);
    void QueueEvent(DWORD type, const GUID& interfaceClass, const std::wstring& link, const Place& place);
    void RecordCamera(std::size_t camera, const char* change);
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const;
    void AnswerWhenSettled();
    void Run();

    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    const Recorder record_;
    const Listener listener_;
    const QuietTest listenerIsQuiet_;
    TransferTime transferTime_;
    const bool skipsWaits_;

    std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    std::chrono::milliseconds skipped_{0};
    std::chrono::steady_clock::duration frozen_{0};  // how long the clock has stood still before
    std::optional<std::chrono::steady_clock::time_point> frozenSince_;
    std::vector<Place> places_;
    unsigned lastStay_ = 0;
    std::vector<InterfaceEvent> waiting_;
    std::vector<std::function<void()>> settled_;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace lab::rig
