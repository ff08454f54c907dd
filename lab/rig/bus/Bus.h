#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "lab/camera/VirtualCamera.h"
#include "lab/rig/bus/BusClock.h"
#include "lab/rig/bus/BusSettings.h"
#include "lab/rig/bus/CameraPort.h"
#include "lab/rig/bus/InterfaceEvent.h"
#include "lab/rig/bus/KernelBus.h"
#include "lab/rig/bus/ListedCamera.h"
#include "lab/rig/bus/StartingPlace.h"
#include "lab/rig/bus/TransferTime.h"

namespace lab::rig {

// One stay of a camera on the bus, from an arrival to the removal that ends it. What was opened during one
// stay does not reach the camera in the next.
struct Presence {
    std::size_t camera = 0;
    unsigned stay = 0;

    bool operator==(const Presence&) const = default;
};

// A transfer as the host's driver reports it: the last error, 0 for success.
struct DriverResult {
    DWORD error = 0;
    std::size_t transferred = 0;
    std::uint32_t tookMs = 0;  // what the host waited for the answer, or before it gave up
};

// The service's USB bus: a clock (BusClock), what Windows lists of each camera (ListedCamera), and the ports
// that transfers go to (CameraPort). The cameras are virtual ones in this process, in the time of the clock;
// or another kernel drives them, in real time, and what it tells of its bus is what arrives and leaves here.
//
// A thread of its own makes what is due happen and announces, one after the other and in the order in which
// Windows does, what arrives and what leaves. All functions may be called on any thread; everything that
// crosses the bus is recorded in the order in which it crosses. Whether a camera of another kernel's comes or
// goes is recorded by whoever serves it.
class Bus {
  public:
    using Recorder = std::function<void(const nlohmann::json& event)>;
    // Called on the bus thread with no lock held, so that it may call whom it likes.
    using Listener = std::function<void(const InterfaceEvent&)>;
    // Whether everything that the listener began is over. Called with the bus locked: must not call the bus.
    using QuietTest = std::function<bool()>;

    // With `ask` another kernel drives the cameras.
    Bus(const BusSettings& settings, Recorder record, Listener listener, QuietTest listenerIsQuiet,
        KernelBus::Asker ask = {});
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // Another kernel's bus. What it tells: a device there, as KernelPort::TakeDevice() has it, and the answer
    // to a question.
    void TakeDevice(std::string_view path, std::string_view product);
    void TakeAnswer(unsigned question, const nlohmann::json& answer);
    // Asks which devices are there already; once that is answered, this bus has them.
    void MeetKernel();
    // It tells nothing more: its devices stay where they are, transfers on them meet no device.
    void LoseKernel();

    // Commands. They throw std::runtime_error when there is no such camera, when it is where it is to go, or
    // when it is on another kernel's bus.
    void Plug(std::size_t camera);
    void Unplug(std::size_t camera);
    // Other cameras take the place of these, each where it starts; refused while one is on the bus. What was
    // opened on the cameras before reaches none of the new ones.
    void ReplaceCameras(const BusSettings& settings);
    // Other faults of a camera in place of those that were; their counting begins.
    void SetFaults(std::size_t camera, const std::vector<Fault>& faults);
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
    // The same for whoever does so millions of times: the bus' thread is not woken while no camera has
    // anything to do.
    void Rest(std::chrono::milliseconds time);
    // Where waits are skipped, the clock stands still while the service handles a control, but for what it
    // skips: so a scenario's times do not depend on how busy the machine is.
    void Freeze();
    void Thaw();
    // The service waits while it handles the arrival of this link: the removal notices that come then are
    // told before this returns.
    void ServiceWaits(std::wstring_view arrival);
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

    // Firmware commands; Disconnected when that stay is over. A reply is the whole control: of a camera that
    // sends less than the buffer takes the driver hands nothing out, as of one that stalls.
    TransferResult WriteCommand(const Presence& presence, std::span<const std::uint8_t> frame);
    TransferResult ReadReply(const Presence& presence, std::span<std::uint8_t> reply);

    // DFU mode. data.size() is at least setup.length; ERROR_INVALID_PARAMETER, without the camera's seeing
    // anything, for more bytes than the host's driver takes in one transfer at the camera's speed.
    DriverResult ControlTransfer(const Presence& presence, const SetupPacket& setup,
                                 std::span<std::uint8_t> data);
    // SET_INTERFACE, as the host's driver sends it.
    DWORD SetInterface(const Presence& presence, std::uint8_t number, std::uint8_t setting);
    // A descriptor read over the bus.
    DriverResult ReadDescriptor(const Presence& presence, std::uint8_t type, std::uint8_t index,
                                std::span<std::uint8_t> buffer);
    // The error of a call on a camera whose stay is over.
    [[nodiscard]] DWORD ErrorOfGone(const Presence& presence);

  private:
    struct Place {
        std::shared_ptr<CameraPort> port;  // shared with the transfers that wait
        VirtualCamera* camera = nullptr;   // in the port; null on another kernel's bus
        ListedCamera listed;
    };

    // Removal notices that wait until the service is done, or until it waits while it handles this arrival.
    struct LateRemovals {
        std::wstring arrival;  // empty: only until it is done
        std::vector<InterfaceEvent> removals;
    };

    // One transfer: given the port and the turn, what became of it.
    using Transfer = std::function<TransferResult(CameraPort& port, const CameraPort::Turn& turn)>;

    void TakeLockedDevice(std::string_view path, std::string_view product);
    Place& At(std::size_t camera);
    VirtualCamera& CameraAt(std::size_t camera);
    Place* Present(const Presence& presence, BusMode mode);
    [[nodiscard]] DWORD WhyGone(const Presence& presence) const;
    [[nodiscard]] bool IsOnItsWay(const Place& place) const;
    // Disconnected when the stay is over.
    TransferResult TransferWhenRunning(const Presence& presence, std::unique_lock<std::mutex>& lock,
                                       const Transfer& transfer);
    // As the driver reports it.
    DriverResult TransferInDfuMode(const Presence& presence, std::unique_lock<std::mutex>& lock,
                                   const Transfer& transfer);
    // The host waits for an answer that comes late, or never. Called with no lock held.
    void SpendWait(const DriverResult& result);
    void PlaceCameras(const BusSettings& settings);
    void PutToStart(std::size_t camera, StartingPlace start);
    void AdvanceAll();
    void AdvanceOne(std::size_t camera);
    void NoteChange(std::size_t camera, const char* changeWhenPresent = nullptr);
    void RecordCamera(const Place& place, const char* change);
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const;
    void AnswerWhenSettled();
    void Run();

    const Recorder record_;
    const Listener listener_;
    const QuietTest listenerIsQuiet_;
    TransferTime transferTime_;
    const bool skipsWaits_;

    std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    BusClock clock_;
    std::unique_ptr<KernelBus> kernel_;  // null: the cameras are in this process
    std::vector<Place> places_;
    unsigned lastStay_ = 0;
    std::vector<InterfaceEvent> waiting_;
    bool isAnnouncing_ = false;
    std::vector<LateRemovals> late_;
    std::vector<std::function<void()>> settled_;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace lab::rig
