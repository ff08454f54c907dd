#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "lab/rig/bus/Bus.h"
#include "lab/rig/bus/Rest.h"
#include "lab/rig/contracts/Contracts.h"
#include "lab/rig/run/RunSettings.h"
#include "lab/rig/service/ControlLoop.h"
#include "lab/rig/service/EventBurst.h"
#include "lab/rig/service/InterfaceWatchers.h"
#include "lab/rig/service/TraceConsumer.h"
#include "lab/rig/usb/UsbDevices.h"
#include "lab/wire/Wire.h"

namespace lab::rig {

// One run: the connection to the command-line program, and all that stands in for the platform while it
// lasts.
class Rig {
  public:
    // The process's rig. The first call connects; null when there is nobody to connect to or the stage that
    // came is refused, then and for ever. Keeps the calling thread's last error. Never call it from a
    // DllMain. The object lives until the process ends: its threads are ended by the system, never waited
    // for.
    [[nodiscard]] static Rig* Get();
    // The same without connecting: null before the first Get().
    [[nodiscard]] static Rig* IfConnected();

    Rig(std::unique_ptr<Wire> wire, const RunSettings& settings);

    // Sends an event; keeps the calling thread's last error. Any thread. What the service does while it
    // handles a burst of events is not sent: telling it would take longer than doing it.
    void Record(const nlohmann::json& event);

    // The service begins (true) or ends something that takes no time of the bus's but for what is skipped;
    // any thread, each beginning with an end of its own. The clock goes on when nothing of it is left.
    void HoldClock(bool isHeld);

    [[nodiscard]] const RunSettings& Settings() const { return settings_; }
    [[nodiscard]] Bus& TheBus() { return bus_; }
    [[nodiscard]] Rest& TheRest() { return rest_; }
    [[nodiscard]] ControlLoop& Controls() { return controls_; }
    [[nodiscard]] InterfaceWatchers& Watchers() { return watchers_; }
    [[nodiscard]] UsbDevices& Devices() { return devices_; }
    [[nodiscard]] TraceConsumer& Traces() { return traces_; }
    [[nodiscard]] Contracts& TheContracts() { return contracts_; }

  private:
    static std::unique_ptr<Rig> Connect();
    void AskGuest(const nlohmann::json& question);
    void Announce(const InterfaceEvent& event);
    void QueueBurst(const EventBurst& burst);
    [[nodiscard]] nlohmann::json LetRest(const nlohmann::json& command);
    void Obey(const nlohmann::json& command);
    void TellBreach(std::string_view contract, std::string_view call);

    const std::unique_ptr<Wire> wire_;
    const RunSettings settings_;
    std::atomic<bool> isBurst_{false};
    std::mutex clockMutex_;  // guards holders_, and what the clock is told
    int holders_ = 0;
    InterfaceWatchers watchers_;
    ControlLoop controls_;
    Bus bus_;
    Rest rest_;
    UsbDevices devices_;
    Contracts contracts_;
    TraceConsumer traces_;
};

}  // namespace lab::rig
