#include "lab/rig/run/Rig.h"

#include <atomic>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/rig/process/LastErrorKeeper.h"
#include "lab/rig/run/RigCommands.h"

namespace lab::rig {
namespace {

using nlohmann::json;

constinit std::once_flag connectOnce;
constinit std::atomic<Rig*> connectedRig{nullptr};

}  // namespace

Rig* Rig::Get() {
    const LastErrorKeeper keeper;
    // Released on purpose: the product's static objects still call the platform while the process ends.
    std::call_once(connectOnce, [] { connectedRig = Connect().release(); });
    return connectedRig;
}

Rig* Rig::IfConnected() {
    return connectedRig;
}

std::unique_ptr<Rig> Rig::Connect() {
    auto wire = Wire::Connect("rig");
    if (wire == nullptr) {
        return nullptr;
    }
    try {
        const auto settings = RunSettings::FromStage(wire->Stage());
        return std::make_unique<Rig>(std::move(wire), settings);
    } catch (const std::exception& error) {
        wire->Send(RefusedEvent("stage", error.what()));
        return nullptr;
    }
}

Rig::Rig(std::unique_ptr<Wire> wire, const RunSettings& settings)
    : wire_(std::move(wire)),
      settings_(settings),
      watchers_([this](const json& event) { Record(event); }),
      controls_([this](const json& event) { Record(event); }, [this] { bus_.Wake(); },
                [this](bool isHandling) { HoldClock(isHandling); }, [this] { return bus_.ClockMs(); }),
      bus_(
          settings_.bus, [this](const json& event) { Record(event); },
          [this](const InterfaceEvent& event) { Announce(event); }, [this] { return controls_.IsIdle(); },
          settings_.bus.isOnKernelBus ? [this](const json& question) { AskGuest(question); }
                                      : KernelBus::Asker()),
      rest_(bus_),
      devices_(bus_, [this](const json& event) { Record(event); }),
      contracts_([this](std::string_view contract, std::string_view call) { TellBreach(contract, call); }) {
    contracts_.media.FailStarts(settings.failedMediaStarts);
    // The run goes on when the connection closes; only nothing is recorded any more.
    wire_->Start([this](const json& command) { Obey(command); }, [this] { bus_.LoseKernel(); });
    bus_.MeetKernel();
}

void Rig::Record(const json& event) {
    if (isBurst_ && controls_.IsHandlingHere()) {
        return;
    }
    const LastErrorKeeper keeper;
    wire_->Send(event);
}

void Rig::HoldClock(bool isHeld) {
    const std::lock_guard lock(clockMutex_);
    holders_ += isHeld ? 1 : -1;
    if (isHeld && holders_ == 1) {
        bus_.Freeze();
    } else if (holders_ == 0) {
        bus_.Thaw();
    }
}

// Also in a burst: it must never go unseen.
void Rig::TellBreach(std::string_view contract, std::string_view call) {
    const LastErrorKeeper keeper;
    wire_->Send({{"event", "contract"}, {"contract", contract}, {"call", call}});
}

// The command-line program hands it on, and the answer back.
void Rig::AskGuest(const json& question) {
    const LastErrorKeeper keeper;
    wire_->Send(question);
}

void Rig::Announce(const InterfaceEvent& event) {
    if (event.tellsWatchers) {
        watchers_.Notify(event);
    }
    controls_.Queue(event);
}

void Rig::QueueBurst(const EventBurst& burst) {
    controls_.QueueWork([this, burst](LPHANDLER_FUNCTION_EX handler, void* context) {
        isBurst_ = true;
        const BurstResult result = burst.Deliver(handler, context);
        isBurst_ = false;
        Record({{"event", "burst"},
                {"events", result.events},
                {"seconds", result.seconds},
                {"handling_us", result.handlingUs},
                {"longest_us", result.longestUs}});
    });
}

json Rig::LetRest(const json& command) {
    if (!settings_.bus.skipsWaits) {
        throw std::runtime_error("the machine rests where waits are skipped");
    }
    json answer = DoneEvent("rest");
    answer["sleeps"] = rest_.Pass(RestOf(command));
    return answer;
}

void Rig::Obey(const json& command) {
    const auto name = command.at("command").get<std::string>();
    if (name == "answer") {
        bus_.TakeAnswer(command.at("question").get<unsigned>(), command.at("answer"));
        return;
    }
    if (name == "device") {
        bus_.TakeDevice(command.at("path").get<std::string>(), command.at("product").get<std::string>());
        return;
    }
    if (name == "settle") {
        bus_.WhenSettled([this] { Record(DoneEvent("settle")); });
        return;
    }
    if (name == "control") {
        controls_.QueueControl(command.at("control").get<std::uint8_t>());
        Record(DoneEvent(name));
        return;
    }
    if (name == "trace-message") {
        traces_.Tell(TraceConsumer::MessageOf(command));
        Record(DoneEvent(name));
        return;
    }
    if (name == "burst") {
        QueueBurst(BurstOf(command));
        Record(DoneEvent(name));
        return;
    }
    Record(name == "rest" ? LetRest(command) : CarryOut(bus_, name, command));
}

}  // namespace lab::rig
