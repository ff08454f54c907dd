#include <windows.h>
#include <dbt.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <future>
#include <stdexcept>
#include <thread>

#include "lab/rig/bus/Bus.h"
#include "lab/rig/bus/InterfaceClasses.h"
#include "tests/lab/rig/RecordedEvents.h"

using namespace lab::rig;
using lab::SetupPacket;
using lab::TransferEnd;
using nlohmann::json;

namespace {

constexpr SetupPacket kGetState{0xA1, 5, 0, 0, 1};
constexpr SetupPacket kDownload{0x21, 1, 7, 0, 4};
const DeviceLinks kFirst{0};
const DeviceLinks kSecond{1};

// What another kernel answers, command by command; every question is kept.
class ScriptedKernel {
  public:
    ScriptedKernel() = default;
    ScriptedKernel(const ScriptedKernel&) = delete;
    ScriptedKernel& operator=(const ScriptedKernel&) = delete;
    ~ScriptedKernel() {
        {
            const std::lock_guard lock(mutex_);
            isOver_ = true;
        }
        changed_.notify_all();
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    void Serve(Bus& bus) {
        thread_ = std::thread([this, &bus] { Answer(bus); });
    }

    // Other answers than {"ok": true}.
    void Says(const std::string& command, json answer) {
        const std::lock_guard lock(mutex_);
        answers_[command] = std::move(answer);
    }

    // Leaves questions of this name unanswered.
    void IsSilentAbout(const std::string& command) { Says(command, nullptr); }

    void Take(const json& question) {
        const std::lock_guard lock(mutex_);
        asked_.push_back(question);
        open_.push_back(question);
        changed_.notify_all();
    }

    // The commands asked so far.
    std::vector<json> Asked() {
        const std::lock_guard lock(mutex_);
        std::vector<json> commands;
        std::ranges::transform(asked_, std::back_inserter(commands),
                               [](const json& question) { return question.at("command"); });
        return commands;
    }

    void WaitUntilAsked(const std::string& command) {
        std::unique_lock lock(mutex_);
        const bool isAsked = changed_.wait_for(lock, std::chrono::seconds(10), [&] {
            return std::ranges::any_of(asked_, [&](const json& question) {
                return question.at("command").at("command") == command;
            });
        });
        EXPECT_TRUE(isAsked) << command;
    }

  private:
    void Answer(Bus& bus) {
        std::unique_lock lock(mutex_);
        while (true) {
            changed_.wait(lock, [this] { return isOver_ || !open_.empty(); });
            if (isOver_) {
                return;
            }
            const json question = open_.front();
            open_.pop_front();
            const auto known = answers_.find(question.at("command").at("command").get<std::string>());
            const json answer = known == answers_.end() ? json{{"ok", true}} : known->second;
            if (answer.is_null()) {
                continue;
            }
            lock.unlock();
            bus.TakeAnswer(question.at("question").get<unsigned>(), answer);
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, json> answers_;
    std::vector<json> asked_;
    std::deque<json> open_;
    bool isOver_ = false;
    std::thread thread_;
};

class KernelBusTest : public ::testing::Test {
  protected:
    void Begin(std::vector<lab::CameraSettings> cameras = {{}, {}}) {
        BusSettings settings;
        settings.isOnKernelBus = true;
        settings.cameras = std::move(cameras);
        settings.departures = departures_;
        bus_ = std::make_unique<Bus>(
            settings, [this](const json& event) { events_.Add(event); },
            [this](const InterfaceEvent& event) {
                const std::lock_guard lock(mutex_);
                announced_.push_back(event);
            },
            [] { return true; }, [this](const json& question) { kernel_.Take(question); });
        kernel_.Serve(*bus_);
    }

    Presence BeginInDfuMode() {
        Begin();
        bus_->TakeDevice("1-1", "7e01");
        return bus_->FindDfuDevice(kFirst.DfuUsb()).value();
    }

    Presence BeginRunning(const lab::CameraSettings& camera = {}) {
        Begin({camera});
        bus_->TakeDevice("1-1", "7e00");
        return bus_->FindSource(kFirst.SensorCamera()).value();
    }

    DriverResult GetState(const Presence& presence) {
        std::array<std::uint8_t, 1> state{};
        return bus_->ControlTransfer(presence, kGetState, state);
    }

    std::vector<std::wstring> Announced(DWORD type) {
        const auto settled = std::make_shared<std::promise<void>>();
        bus_->WhenSettled([settled] { settled->set_value(); });
        EXPECT_EQ(settled->get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
        const std::lock_guard lock(mutex_);
        std::vector<std::wstring> links;
        for (const InterfaceEvent& event : announced_) {
            if (event.type == type) {
                links.push_back(event.link);
            }
        }
        return links;
    }

    std::vector<Departure> departures_;
    RecordedEvents events_;
    std::mutex mutex_;
    std::vector<InterfaceEvent> announced_;
    ScriptedKernel kernel_;
    std::unique_ptr<Bus> bus_;

    void TearDown() override { bus_->LoseKernel(); }
};

}  // namespace

TEST_F(KernelBusTest, AnnouncesWhatTheKernelTellsOfThePortsOfItsCameras) {
    Begin();
    bus_->TakeDevice("usb1", "0002");
    bus_->TakeDevice("1-3", "7e00");
    bus_->TakeDevice("1-1", "0001");
    EXPECT_EQ(Announced(DBT_DEVICEARRIVAL), std::vector<std::wstring>());
    bus_->TakeDevice("2-2", "7e00");
    EXPECT_EQ(Announced(DBT_DEVICEARRIVAL),
              (std::vector{kSecond.RunningUsb(), kSecond.SensorCamera(), kSecond.VideoCamera()}));
    bus_->TakeDevice("2-2", "");
    EXPECT_EQ(Announced(DBT_DEVICEREMOVECOMPLETE),
              (std::vector{kSecond.RunningUsb(), kSecond.SensorCamera(), kSecond.VideoCamera()}));
    bus_->TakeDevice("1-2", "7e01");
    EXPECT_EQ(bus_->PresentLinks(kUsbDeviceClass), std::vector{kSecond.DfuUsb()});
    EXPECT_TRUE(events_.Named("camera").empty());
}

TEST_F(KernelBusTest, MeetsWhatIsThereAlready) {
    Begin();
    kernel_.Says(
        "devices",
        {{"ok", true},
         {"devices", {{{"path", "usb1"}, {"product", "0002"}}, {{"path", "1-1"}, {"product", "7e00"}}}}});
    bus_->MeetKernel();
    EXPECT_TRUE(bus_->FindSource(kFirst.SensorCamera()).has_value());
    EXPECT_FALSE(bus_->FindSource(kSecond.SensorCamera()).has_value());
}

TEST_F(KernelBusTest, ClaimsTheInterfaceOnceForItsRequests) {
    const Presence presence = BeginInDfuMode();
    kernel_.Says("control", {{"ok", true}, {"transferred", 1}, {"data", "05"}});
    std::array<std::uint8_t, 1> state{};
    const DriverResult result = bus_->ControlTransfer(presence, kGetState, state);
    EXPECT_EQ(result.error, 0U);
    EXPECT_EQ(result.transferred, 1U);
    EXPECT_EQ(state[0], 5);
    std::array<std::uint8_t, 4> block{0xDE, 0xAD, 0xBE, 0xEF};
    kernel_.Says("control", {{"ok", true}, {"transferred", 4}});
    EXPECT_EQ(bus_->ControlTransfer(presence, kDownload, block).transferred, 4U);
    EXPECT_EQ(bus_->SetInterface(presence, 0, 1), 0U);
    const json getState{
        {"command", "control"}, {"device", "1-1"}, {"setup", "a105000000000100"}, {"limit_ms", 5000}};
    const json download{{"command", "control"},
                        {"device", "1-1"},
                        {"setup", "2101070000000400"},
                        {"limit_ms", 5000},
                        {"data", "deadbeef"}};
    EXPECT_EQ(kernel_.Asked(),
              (std::vector<json>{
                  {{"command", "claim"}, {"device", "1-1"}, {"interface", 0}},
                  getState,
                  download,
                  {{"command", "set-interface"}, {"device", "1-1"}, {"interface", 0}, {"setting", 1}}}));
    EXPECT_EQ(events_.Named("transfer").size(), 2U);
}

TEST_F(KernelBusTest, ClaimsAnewWhatHasComeAnew) {
    BeginInDfuMode();
    bus_->TakeDevice("1-1", "");
    bus_->TakeDevice("1-1", "7e01");
    GetState(bus_->FindDfuDevice(kFirst.DfuUsb()).value());
    EXPECT_EQ(kernel_.Asked().front().at("command"), "claim");
}

TEST_F(KernelBusTest, ReportsTheKernelsErrorsAsWindowsDoes) {
    const Presence presence = BeginInDfuMode();
    for (const auto& [name, error] : std::map<std::string, DWORD>{{"EPIPE", ERROR_GEN_FAILURE},
                                                                  {"ETIMEDOUT", ERROR_SEM_TIMEOUT},
                                                                  {"ENODEV", ERROR_GEN_FAILURE},
                                                                  {"EPROTO", ERROR_GEN_FAILURE},
                                                                  {"EOVERFLOW", ERROR_GEN_FAILURE}}) {
        kernel_.Says("control", {{"ok", true}, {"errno", name}, {"why", "it was tried"}});
        const DriverResult result = GetState(presence);
        EXPECT_EQ(result.error, error) << name;
        EXPECT_EQ(result.transferred, 0U) << name;
    }
    kernel_.Says("claim", {{"ok", true}, {"errno", "EBUSY"}, {"why", "it was tried"}});
    EXPECT_EQ(bus_->SetInterface(presence, 1, 0), DWORD{ERROR_GEN_FAILURE});
}

TEST_F(KernelBusTest, ReportsADeviceThatLeavesAsTheStageSays) {
    departures_.resize(1);
    departures_[0].transferError = ERROR_DEVICE_NOT_CONNECTED;
    const Presence presence = BeginInDfuMode();
    kernel_.Says("control", {{"ok", true}, {"errno", "ESHUTDOWN"}, {"why", "it was tried"}});
    EXPECT_EQ(GetState(presence).error, DWORD{ERROR_DEVICE_NOT_CONNECTED});
    bus_->TakeDevice("1-1", "");
    EXPECT_EQ(GetState(presence).error, DWORD{ERROR_DEVICE_NOT_CONNECTED});
}

// A kernel that answers more than was asked for, or nonsense, does no harm.
TEST_F(KernelBusTest, TakesNoMoreThanItHasAskedFor) {
    const Presence presence = BeginInDfuMode();
    std::array<std::uint8_t, 1> state{};
    kernel_.Says("control", {{"ok", true}, {"transferred", 3}, {"data", "050607"}});
    EXPECT_EQ(bus_->ControlTransfer(presence, kGetState, state).transferred, 1U);
    kernel_.Says("control", {{"ok", true}, {"transferred", 1}, {"data", "5"}});
    EXPECT_EQ(bus_->ControlTransfer(presence, kGetState, state).transferred, 0U);
}

TEST_F(KernelBusTest, SendsFirmwareCommandsThroughTheVideoDriver) {
    lab::CameraSettings settings;
    settings.nodes = {lab::TopologyNode::Processing, lab::TopologyNode::Foreign,
                      lab::TopologyNode::ExtensionUnit};
    const Presence presence = BeginRunning(settings);
    const std::array<std::uint8_t, 2> frame{0x12, 0x34};
    EXPECT_EQ(bus_->WriteCommand(presence, frame).end, TransferEnd::Ok);
    kernel_.Says("extension-unit", {{"ok", true}, {"data", "1000"}});
    std::array<std::uint8_t, 2> reply{};
    EXPECT_EQ(bus_->ReadReply(presence, reply).end, TransferEnd::Ok);
    EXPECT_EQ(reply[0], 0x10);
    const json place{{"command", "extension-unit"}, {"device", "1-1"}, {"unit", 4}, {"selector", 1}};
    json write = place;
    write.update({{"query", "SET_CUR"}, {"data", "1234"}});
    json read = place;
    read.update({{"query", "GET_CUR"}, {"length", 2}});
    EXPECT_EQ(kernel_.Asked(), (std::vector{write, read}));
    // Of a camera that sends less the driver hands nothing out.
    kernel_.Says("extension-unit", {{"ok", true}, {"data", "10"}});
    EXPECT_EQ(bus_->ReadReply(presence, reply).end, TransferEnd::Stall);
}

TEST_F(KernelBusTest, HasNoCommandsForACameraWithoutItsUnit) {
    lab::CameraSettings settings;
    settings.hasExtensionUnit = false;
    const Presence presence = BeginRunning(settings);
    EXPECT_EQ(bus_->WriteCommand(presence, std::array<std::uint8_t, 1>{}).end, TransferEnd::Stall);
    EXPECT_TRUE(kernel_.Asked().empty());
}

TEST_F(KernelBusTest, ReadsDescriptorsOverTheBusAndInterfacesAsTheKernelHasKeptThem) {
    const Presence presence = BeginInDfuMode();
    std::array<std::uint8_t, 9> head{};
    bus_->ReadDescriptor(presence, 2, 0, head);
    EXPECT_EQ(
        kernel_.Asked(),
        (std::vector<json>{
            {{"command", "control"}, {"device", "1-1"}, {"setup", "8006000200000900"}, {"limit_ms", 5000}}}));
    const std::string device(36, '0');
    kernel_.Says("descriptors", {{"ok", true},
                                 {"data", device + "0902120001010080fa" +
                                              "09040000"
                                              "00fe010200"}});
    EXPECT_EQ(bus_->Interfaces(presence), (InterfaceDescriptors{{9, 4, 0, 0, 0, 0xFE, 1, 2, 0}}));
    for (const char* nonsense : {"", "0902", "xy"}) {
        kernel_.Says("descriptors", {{"ok", true}, {"data", nonsense}});
        EXPECT_EQ(bus_->Interfaces(presence), InterfaceDescriptors()) << nonsense;
    }
}

TEST_F(KernelBusTest, HasNoInterfacesOfADeviceThatGoes) {
    const Presence presence = BeginInDfuMode();
    kernel_.Says("descriptors", {{"ok", true}, {"errno", "ENODEV"}, {"why", "it is gone"}});
    EXPECT_EQ(bus_->Interfaces(presence), std::nullopt);
}

// The claim's answer comes when another device is there already: what was opened does not reach that one.
TEST_F(KernelBusTest, SendsNothingToADeviceThatCameMeanwhile) {
    const Presence presence = BeginInDfuMode();
    kernel_.IsSilentAbout("claim");
    auto transfer = std::async(std::launch::async, [&] { return GetState(presence); });
    kernel_.WaitUntilAsked("claim");
    bus_->TakeDevice("1-1", "");
    bus_->TakeDevice("1-1", "7e01");
    bus_->TakeAnswer(1, {{"ok", true}});
    EXPECT_EQ(transfer.get().error, DWORD{ERROR_GEN_FAILURE});
    EXPECT_EQ(kernel_.Asked().size(), 1U);
}

TEST_F(KernelBusTest, GoesOnWhileATransferWaits) {
    const Presence presence = BeginInDfuMode();
    kernel_.IsSilentAbout("control");
    auto transfer = std::async(std::launch::async, [&] { return GetState(presence); });
    kernel_.WaitUntilAsked("control");
    bus_->TakeDevice("1-1", "");
    EXPECT_EQ(Announced(DBT_DEVICEREMOVECOMPLETE), std::vector{kFirst.DfuUsb()});
    // Claim was the first question. Other cameras have come by the time that the answer does.
    BusSettings none;
    bus_->ReplaceCameras(none);
    bus_->TakeAnswer(2, {{"ok", true}, {"errno", "ESHUTDOWN"}, {"why", "it is gone"}});
    EXPECT_EQ(transfer.get().error, DWORD{ERROR_GEN_FAILURE});
}

TEST_F(KernelBusTest, EndsATransferWhenNobodyAnswersAnyMore) {
    const Presence presence = BeginInDfuMode();
    kernel_.IsSilentAbout("control");
    auto transfer = std::async(std::launch::async, [&] { return GetState(presence); });
    kernel_.WaitUntilAsked("control");
    bus_->LoseKernel();
    EXPECT_EQ(transfer.get().error, DWORD{ERROR_GEN_FAILURE});
}

TEST_F(KernelBusTest, LeavesCamerasToThoseWhoServeThem) {
    Begin();
    EXPECT_THROW(bus_->Plug(0), std::runtime_error);
    EXPECT_THROW(bus_->Unplug(0), std::runtime_error);
    EXPECT_THROW(static_cast<void>(bus_->State(0)), std::runtime_error);
    EXPECT_THROW(static_cast<void>(bus_->Flash(0)), std::runtime_error);
    EXPECT_EQ(bus_->HeldBytes([] {}), 0U);
}
