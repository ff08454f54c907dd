#include <windows.h>
#include <dbt.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "lab/rig/bus/InterfaceClasses.h"
#include "tests/lab/rig/bus/BusFixture.h"

using namespace lab::rig;
using lab::SetupPacket;
using lab::TransferEnd;

namespace {

constexpr SetupPacket kGetState{0xA1, 5, 0, 0, 1};
constexpr DWORD kNoSuchDevice = 433;

class BusTest : public BusFixture {
  protected:
    void ExpectAnnounced(const std::vector<InterfaceEvent>& expected) {
        const auto announced = TakeAnnounced();
        ASSERT_EQ(announced.size(), expected.size());
        for (std::size_t index = 0; index < expected.size(); ++index) {
            EXPECT_EQ(announced[index].type, expected[index].type);
            EXPECT_TRUE(announced[index].interfaceClass == expected[index].interfaceClass);
            EXPECT_EQ(announced[index].link, expected[index].link);
            EXPECT_EQ(announced[index].tellsWatchers, expected[index].tellsWatchers);
        }
    }

    std::vector<InterfaceEvent> OfRunningCamera(DWORD type) {
        return {{type, kUsbDeviceClass, links_.RunningUsb()},
                {type, kSensorCameraClass, links_.SensorCamera()},
                {type, kVideoCameraClass, links_.VideoCamera()}};
    }

    std::vector<std::string> Changes() {
        std::vector<std::string> changes;
        for (const auto& event : events_.Named("camera")) {
            changes.push_back(event.at("change"));
        }
        return changes;
    }
};

}  // namespace

TEST_F(BusTest, AnnouncesARunningCameraAsUsbDeviceThenSensorThenVideoCamera) {
    BeginRunning();
    ASSERT_TRUE(Settle());
    ExpectAnnounced(OfRunningCamera(DBT_DEVICEARRIVAL));
    bus_->Unplug(0);
    ASSERT_TRUE(Settle());
    ExpectAnnounced(OfRunningCamera(DBT_DEVICEREMOVECOMPLETE));
    EXPECT_EQ(Changes(), (std::vector<std::string>{"plugged", "unplugged"}));
}

TEST_F(BusTest, AnnouncesTheRemovalBeforeTheArrivalInDfuMode) {
    Begin({QuickCamera()});
    BringIntoDfuMode();
    auto expected = OfRunningCamera(DBT_DEVICEARRIVAL);
    for (const auto& event : OfRunningCamera(DBT_DEVICEREMOVECOMPLETE)) {
        expected.push_back(event);
    }
    expected.push_back({DBT_DEVICEARRIVAL, kUsbDeviceClass, links_.DfuUsb()});
    ExpectAnnounced(expected);
    EXPECT_EQ(Changes(), (std::vector<std::string>{"plugged", "left", "dfu"}));
}

TEST_F(BusTest, RecordsTheCommandBeforeWhatItBringsAbout) {
    Begin({QuickCamera()});
    BringIntoDfuMode();
    const auto events = events_.All();
    ASSERT_EQ(events.size(), 4U);
    EXPECT_EQ(events[1], (nlohmann::json{{"event", "firmware-command"},
                                         {"length", 20},
                                         {"magic", 0xCDAB},
                                         {"opcode", 0x1E},
                                         {"parameters", {1, 0, 0, 0}},
                                         {"result", 0}}));
    EXPECT_EQ(events[2].at("change"), "left");
    EXPECT_EQ(events[3].at("change"), "dfu");
}

TEST_F(BusTest, ListsOnlyWhatIsPresentInTheClassAsked) {
    Begin({QuickCamera(), QuickCamera()});
    EXPECT_TRUE(bus_->PresentLinks(kUsbDeviceClass).empty());
    BringIntoDfuMode();
    bus_->Plug(1);
    const DeviceLinks second(1);
    EXPECT_EQ(bus_->PresentLinks(kUsbDeviceClass),
              (std::vector<std::wstring>{links_.DfuUsb(), second.RunningUsb()}));
    EXPECT_EQ(bus_->PresentLinks(kSensorCameraClass), std::vector<std::wstring>{second.SensorCamera()});
    EXPECT_EQ(bus_->PresentLinks(kVideoCameraClass), std::vector<std::wstring>{second.VideoCamera()});
    EXPECT_TRUE(bus_->PresentLinks(GUID{}).empty());
    EXPECT_EQ(bus_->SourceLinks(SourceKind::Capture), std::vector<std::wstring>{second.VideoCamera()});
    EXPECT_EQ(bus_->SourceLinks(SourceKind::SensorCamera), std::vector<std::wstring>{second.SensorCamera()});
}

// A handle opened before the camera left must not reach it when it is back, as with the real driver.
TEST_F(BusTest, WhatWasOpenedInOneStayIsDisconnectedInTheNext) {
    BeginRunning();
    const auto first = bus_->FindSource(links_.Capture());
    ASSERT_TRUE(first.has_value());
    bus_->Unplug(0);
    bus_->Plug(0);
    std::vector<std::uint8_t> reply(lab::VirtualCamera::kFrameSize);
    EXPECT_EQ(bus_->ReadReply(*first, reply).end, TransferEnd::Disconnected);
    EXPECT_EQ(SendDfuModeCommand(*first).end, TransferEnd::Disconnected);
    EXPECT_FALSE(bus_->Interfaces(*first).has_value());
    EXPECT_EQ(bus_->ControlTransfer(*first, kGetState, std::span(reply).first(1)).error, kNoSuchDevice);
}

TEST_F(BusTest, RecordsATransferWithItsSetupAndItsData) {
    Begin({QuickCamera()});
    const auto device = BringIntoDfuMode();
    std::array<std::uint8_t, 1> state{};
    ASSERT_EQ(bus_->ControlTransfer(device, kGetState, state).error, DWORD{ERROR_SUCCESS});
    EXPECT_EQ(state[0], 2);
    EXPECT_EQ(events_.All().back(), (nlohmann::json{{"event", "transfer"},
                                                    {"setup", "a1 05 00 00 00 00 01 00"},
                                                    {"length", 1},
                                                    {"transferred", 1},
                                                    {"ok", true},
                                                    {"error", 0},
                                                    {"data", "02"}}));
}

TEST_F(BusTest, RecordsARefusedTransferWithItsErrorAndWhatTheHostSent) {
    auto camera = QuickCamera();
    camera.faults.push_back({lab::Fault::Where::Dnload, lab::Fault::What::Stall});
    Begin({camera});
    const auto device = BringIntoDfuMode();
    std::array<std::uint8_t, 4> block{0xDE, 0xAD, 0xBE, 0xEF};
    EXPECT_EQ(bus_->ControlTransfer(device, {0x21, 1, 0x1234, 0, 4}, block).error, DWORD{ERROR_GEN_FAILURE});
    EXPECT_EQ(events_.All().back(), (nlohmann::json{{"event", "transfer"},
                                                    {"setup", "21 01 34 12 00 00 04 00"},
                                                    {"length", 4},
                                                    {"sent", "deadbeef"},
                                                    {"transferred", 0},
                                                    {"ok", false},
                                                    {"error", ERROR_GEN_FAILURE}}));
}

TEST_F(BusTest, TheFaultThatUnplugsIsAnnouncedAsAnUnplugging) {
    auto camera = QuickCamera();
    camera.faults.push_back({lab::Fault::Where::GetState, lab::Fault::What::Unplug});
    Begin({camera});
    const auto device = BringIntoDfuMode();
    std::array<std::uint8_t, 1> state{};
    EXPECT_EQ(bus_->ControlTransfer(device, kGetState, state).error, DWORD{ERROR_GEN_FAILURE});
    ASSERT_TRUE(Settle());
    EXPECT_EQ(Changes().back(), "unplugged");
    const auto announced = TakeAnnounced();
    EXPECT_EQ(announced.back().type, DWORD{DBT_DEVICEREMOVECOMPLETE});
    EXPECT_EQ(announced.back().link, links_.DfuUsb());
}

TEST_F(BusTest, UnpluggingBetweenTwoModesKeepsTheCameraAway) {
    auto camera = QuickCamera();
    camera.enumerateMs = 60'000;
    BeginRunning(camera);
    ASSERT_EQ(SendDfuModeCommand(*bus_->FindSource(links_.Capture())).end, TransferEnd::Ok);
    ASSERT_TRUE(events_.WaitFor("camera", 2));
    bus_->Unplug(0);
    ASSERT_TRUE(Settle());
    EXPECT_EQ(Changes(), (std::vector<std::string>{"plugged", "left", "unplugged"}));
    EXPECT_EQ(bus_->State(0).at("mode"), "absent");
}

TEST_F(BusTest, SettlesOnlyWhenNoCameraIsOnItsWay) {
    auto camera = QuickCamera();
    camera.detachMs = 60'000;
    BeginRunning(camera);
    ASSERT_TRUE(Settle());
    ASSERT_EQ(SendDfuModeCommand(*bus_->FindSource(links_.Capture())).end, TransferEnd::Ok);
    const auto settled = std::make_shared<std::promise<void>>();
    auto future = settled->get_future();
    bus_->WhenSettled([settled] { settled->set_value(); });
    EXPECT_EQ(future.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    bus_->Unplug(0);
    EXPECT_EQ(future.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST_F(BusTest, RefusesCommandsThatCannotBeDone) {
    Begin({QuickCamera()});
    EXPECT_THROW(bus_->Unplug(0), std::runtime_error);
    EXPECT_THROW(bus_->Plug(1), std::runtime_error);
    EXPECT_THROW((void)bus_->Flash(1), std::runtime_error);
    EXPECT_THROW((void)bus_->State(1), std::runtime_error);
    bus_->Plug(0);
    EXPECT_THROW(bus_->Plug(0), std::runtime_error);
}

TEST_F(BusTest, TellsTheState) {
    Begin({QuickCamera()});
    BringIntoDfuMode();
    const auto state = bus_->State(0);
    EXPECT_EQ(state.at("mode"), "dfu");
    EXPECT_EQ(state.at("dfu_state"), 2);
    EXPECT_EQ(state.at("dfu_status"), 0);
    EXPECT_EQ(state.at("version"), "5.10.2.0");
    EXPECT_EQ(state.at("flash_bytes"), bus_->Flash(0).size());
    EXPECT_EQ(state.at("block_number_gaps"), 0);
}

TEST_F(BusTest, SkippedTimeMakesHappenWhatIsDueThen) {
    auto camera = QuickCamera();
    camera.detachMs = 10;
    camera.enumerateMs = 3'600'000;
    BeginRunning(camera);
    SendDfuModeCommand(*bus_->FindSource(links_.SensorCamera()));
    const auto before = bus_->ClockMs();
    bus_->Skip(3'700'000);
    ASSERT_TRUE(Settle());
    EXPECT_TRUE(bus_->FindDfuDevice(links_.DfuUsb()).has_value());
    EXPECT_GE(bus_->ClockMs(), before + 3'700'000);
}

TEST_F(BusTest, TheClockStandsStillOnlyWhereWaitsAreSkipped) {
    Begin({QuickCamera()});
    bus_->Freeze();
    const auto running = bus_->ClockMs();
    Sleep(30);
    EXPECT_GT(bus_->ClockMs(), running);

    BusSettings settings;
    settings.skipsWaits = true;
    BeginOn(settings);
    bus_->Freeze();
    const auto frozen = bus_->ClockMs();
    Sleep(30);
    EXPECT_EQ(bus_->ClockMs(), frozen);
    bus_->Skip(500);
    EXPECT_EQ(bus_->ClockMs(), frozen + 500);
    bus_->Thaw();
    Sleep(30);
    EXPECT_GT(bus_->ClockMs(), frozen + 500);
}

TEST_F(BusTest, ARequestThatNothingAnswersTakesTheHostsTime) {
    auto camera = QuickCamera();
    camera.faults = {{.where = lab::Fault::Where::GetState, .what = lab::Fault::What::Timeout}};
    BeginSkippingWaits(camera);
    const auto presence = BringIntoDfuMode();
    const auto before = bus_->ClockMs();
    std::array<std::uint8_t, 1> state{};
    EXPECT_EQ(bus_->ControlTransfer(presence, kGetState, state).error, DWORD{ERROR_SEM_TIMEOUT});
    EXPECT_GE(bus_->ClockMs(), before + 5'000);
}

TEST_F(BusTest, AnAnswerThatComesLateTakesTheHostsTime) {
    auto camera = QuickCamera();
    camera.timeoutMs = 5'000;
    camera.blockMs = 4'000;
    camera.traits = lab::TraitsOf(lab::Personality::Kv400);
    camera.traits->isDeafWhileWriting = true;
    BeginSkippingWaits(camera);
    const auto presence = BringIntoDfuMode();
    bus_->Freeze();
    std::array<std::uint8_t, 8> block{};
    bus_->ControlTransfer(presence, {0x21, 1, 0, 0, 8}, block);
    const auto before = bus_->ClockMs();
    std::array<std::uint8_t, 1> state{};
    EXPECT_EQ(bus_->ControlTransfer(presence, kGetState, state).error, DWORD{ERROR_SUCCESS});
    EXPECT_EQ(bus_->ClockMs(), before + 4'000);
    EXPECT_EQ(events_.Named("transfer").back().at("ms"), 4'000);
}

TEST_F(BusTest, WhatWasOpenedReachesNoCameraThatTakesItsPlace) {
    Begin({QuickCamera()});
    const auto presence = BringIntoDfuMode();
    bus_->Unplug(0);
    BusSettings others;
    others.cameras = {QuickCamera()};
    bus_->ReplaceCameras(others);
    BringIntoDfuMode();
    std::array<std::uint8_t, 1> state{};
    EXPECT_EQ(bus_->ControlTransfer(presence, kGetState, state).error, kNoSuchDevice);
    bus_->Unplug(0);
    bus_->ReplaceCameras({});
    EXPECT_EQ(bus_->ControlTransfer(presence, kGetState, state).error, kNoSuchDevice);
}

TEST_F(BusTest, BeginsWithCamerasThatAreThereAlready) {
    BusSettings settings;
    settings.cameras = {QuickCamera(), QuickCamera(), QuickCamera()};
    settings.startingPlaces = {StartingPlace::Unplugged, StartingPlace::Running, StartingPlace::InDfuMode};
    BeginOn(settings);
    EXPECT_EQ(bus_->State(0).at("mode"), "absent");
    EXPECT_EQ(bus_->State(1).at("mode"), "running");
    EXPECT_EQ(bus_->State(2).at("mode"), "dfu");
    EXPECT_EQ(bus_->SourceLinks(SourceKind::SensorCamera).size(), 1U);
    EXPECT_EQ(bus_->PresentLinks(kUsbDeviceClass).size(), 2U);
}

TEST_F(BusTest, AnnouncesLinksInTheCaseAskedFor) {
    BusSettings settings;
    settings.cameras = {QuickCamera()};
    settings.linkStyles = {{.announcedIn = LinkStyle::Case::Upper}};
    BeginOn(settings);
    bus_->Plug(0);
    ASSERT_TRUE(Settle());
    const std::wstring upper = Announced(links_.SensorCamera(), LinkStyle::Case::Upper);
    EXPECT_EQ(TakeAnnounced()[1].link, upper);
    EXPECT_EQ(bus_->PresentLinks(kSensorCameraClass), std::vector{upper});
    EXPECT_EQ(bus_->SourceLinks(SourceKind::SensorCamera), std::vector{links_.SensorCamera()});
    EXPECT_TRUE(bus_->FindSource(upper).has_value());
}

TEST_F(BusTest, ListsASensorCameraAmongTheCaptureSourcesWhenAsked) {
    BusSettings settings;
    settings.cameras = {QuickCamera()};
    settings.linkStyles = {{.isListedTwice = true}};
    BeginOn(settings);
    bus_->Plug(0);
    EXPECT_EQ(bus_->SourceLinks(SourceKind::Capture),
              (std::vector{links_.SensorCamera(), links_.VideoCamera()}));
}

TEST_F(BusTest, ListsACameraWithItsCaptureLinkWhenAsked) {
    BusSettings settings;
    settings.cameras = {QuickCamera()};
    settings.linkStyles = {{.listed = LinkStyle::Listed::AsCapture}};
    BeginOn(settings);
    bus_->Plug(0);
    EXPECT_EQ(bus_->SourceLinks(SourceKind::Capture), std::vector{links_.Capture()});
    EXPECT_EQ(bus_->SourceLinks(SourceKind::SensorCamera), std::vector{links_.SensorCamera()});
}

TEST_F(BusTest, ADescriptorThatNothingAnswersTakesTheHostsTime) {
    auto camera = QuickCamera();
    camera.faults = {{.where = lab::Fault::Where::GetDescriptor, .what = lab::Fault::What::Timeout}};
    BeginSkippingWaits(camera);
    const auto presence = BringIntoDfuMode();
    const auto before = bus_->ClockMs();
    std::array<std::uint8_t, 18> descriptor{};
    EXPECT_EQ(bus_->ReadDescriptor(presence, 1, 0, descriptor).error, DWORD{ERROR_SEM_TIMEOUT});
    EXPECT_GE(bus_->ClockMs(), before + 5'000);
}

TEST_F(BusTest, TakesNoMoreThan4KiBInOneTransferAtFullSpeed) {
    auto camera = QuickCamera();
    camera.speed = lab::Speed::Full;
    Begin({camera});
    const auto device = BringIntoDfuMode();
    std::vector<std::uint8_t> block(4097);
    EXPECT_EQ(bus_->ControlTransfer(device, {0x21, 1, 0, 0, 4097}, block).error,
              DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(events_.All().back(), (nlohmann::json{{"event", "transfer"},
                                                    {"setup", "21 01 00 00 00 00 01 10"},
                                                    {"length", 4097},
                                                    {"sent", std::string(2 * block.size(), '0')},
                                                    {"transferred", 0},
                                                    {"ok", false},
                                                    {"error", ERROR_INVALID_PARAMETER}}));
    EXPECT_EQ(bus_->State(0).at("transfers"), 0);
    // The camera itself refuses more than 1024 bytes, and by that shows that it was asked.
    EXPECT_EQ(bus_->ControlTransfer(device, {0x21, 1, 0, 0, 4096}, block).error, DWORD{ERROR_GEN_FAILURE});
    EXPECT_EQ(bus_->State(0).at("transfers"), 1);
}

TEST_F(BusTest, TakesEveryLengthAboveFullSpeed) {
    for (const lab::Speed speed : {lab::Speed::High, lab::Speed::Super}) {
        auto camera = QuickCamera();
        camera.speed = speed;
        camera.transferSize = 65'535;
        Begin({camera});
        const auto device = BringIntoDfuMode();
        std::vector<std::uint8_t> block(65'535);
        EXPECT_EQ(bus_->ControlTransfer(device, {0x21, 1, 0, 0, 65'535}, block).error, DWORD{ERROR_SUCCESS});
    }
}

namespace {

// The errors of transfers on a camera that leaves during the first.
class UnpluggedTest : public BusTest {
  protected:
    void BeginWith(const Departure& departure) {
        auto camera = QuickCamera();
        camera.faults = {{lab::Fault::Where::GetState, lab::Fault::What::Unplug}};
        BusSettings settings;
        settings.skipsWaits = true;
        settings.cameras = {camera};
        settings.departures = {departure};
        BeginOn(settings);
        device_ = BringIntoDfuMode();
        bus_->Freeze();
    }

    DWORD ErrorOfTransfer() {
        std::array<std::uint8_t, 1> state{};
        return bus_->ControlTransfer(device_, kGetState, state).error;
    }

    Presence device_;
};

}  // namespace

TEST_F(UnpluggedTest, ShowsItselfByTiming) {
    BeginWith({});
    EXPECT_EQ(ErrorOfTransfer(), DWORD{ERROR_GEN_FAILURE});
    EXPECT_EQ(ErrorOfTransfer(), DWORD{ERROR_BAD_COMMAND});
    bus_->Skip(499);
    EXPECT_EQ(ErrorOfTransfer(), DWORD{ERROR_BAD_COMMAND});
    bus_->Skip(1);
    EXPECT_EQ(ErrorOfTransfer(), kNoSuchDevice);
    EXPECT_EQ(bus_->ErrorOfGone(device_), kNoSuchDevice);
}

TEST_F(UnpluggedTest, ShowsItselfByOneErrorWhenAsked) {
    BeginWith({.transferError = ERROR_DEVICE_NOT_CONNECTED});
    EXPECT_EQ(ErrorOfTransfer(), DWORD{ERROR_DEVICE_NOT_CONNECTED});
    EXPECT_EQ(ErrorOfTransfer(), DWORD{ERROR_DEVICE_NOT_CONNECTED});
    bus_->Skip(500);
    EXPECT_EQ(ErrorOfTransfer(), DWORD{ERROR_DEVICE_NOT_CONNECTED});
}

TEST_F(UnpluggedTest, AStallIsAStallWhateverTheErrorOfAnUnplugging) {
    BeginWith({.transferError = kNoSuchDevice});
    std::array<std::uint8_t, 1> nothing{};
    EXPECT_EQ(bus_->ControlTransfer(device_, {0xA1, 9, 0, 0, 1}, nothing).error, DWORD{ERROR_GEN_FAILURE});
}

TEST_F(UnpluggedTest, ACameraThatIsBackIsAnotherDevice) {
    BeginWith({});
    EXPECT_EQ(ErrorOfTransfer(), DWORD{ERROR_GEN_FAILURE});
    bus_->Plug(0);
    EXPECT_EQ(ErrorOfTransfer(), kNoSuchDevice);
}

namespace {

// What is announced when the removal notices of a camera that changes into DFU mode come late.
class LateRemovalTest : public BusTest {
  protected:
    ~LateRemovalTest() override { bus_.reset(); }

    // Up to the arrival, which a service handles until isQuiet_.
    void BeginHandling(Departure::Notices notices) {
        BusSettings settings;
        settings.cameras = {QuickCamera()};
        settings.departures = {{.notices = notices}};
        bus_ = std::make_unique<Bus>(
            settings, [this](const nlohmann::json& event) { events_.Add(event); },
            [this](const InterfaceEvent& event) {
                const std::lock_guard lock(mutex_);
                announced_.push_back(event);
                if (event.type == DBT_DEVICEARRIVAL && event.link == links_.DfuUsb()) {
                    isQuiet_ = false;
                }
            },
            [this] { return isQuiet_.load(); });
        bus_->Plug(0);
        SendDfuModeCommand(*bus_->FindSource(links_.SensorCamera()));
        for (int left = 10'000; isQuiet_ && left > 0; --left) {
            Sleep(1);
        }
        EXPECT_FALSE(isQuiet_);
    }

    std::vector<InterfaceEvent> UpToTheArrival() {
        auto expected = OfRunningCamera(DBT_DEVICEARRIVAL);
        expected.push_back({DBT_DEVICEARRIVAL, kUsbDeviceClass, links_.DfuUsb()});
        return expected;
    }

    void BecomeQuiet() {
        isQuiet_ = true;
        bus_->Wake();
    }

    std::atomic<bool> isQuiet_{true};
};

}  // namespace

TEST_F(LateRemovalTest, ComesWhenTheArrivalIsHandled) {
    BeginHandling(Departure::Notices::AfterTheArrivalIsHandled);
    bus_->ServiceWaits(links_.DfuUsb());
    bus_->Wake();
    Sleep(30);
    ExpectAnnounced(UpToTheArrival());
    BecomeQuiet();
    ASSERT_TRUE(Settle());
    ExpectAnnounced(OfRunningCamera(DBT_DEVICEREMOVECOMPLETE));
}

TEST_F(LateRemovalTest, ComesWhileTheArrivalIsHandledBeforeTheServicesWaitIsOver) {
    BeginHandling(Departure::Notices::WhileTheArrivalIsHandled);
    bus_->ServiceWaits(L"");
    bus_->ServiceWaits(links_.RunningUsb());
    Sleep(30);
    ExpectAnnounced(UpToTheArrival());
    bus_->ServiceWaits(links_.DfuUsb());
    ExpectAnnounced(OfRunningCamera(DBT_DEVICEREMOVECOMPLETE));
    BecomeQuiet();
    ASSERT_TRUE(Settle());
    ExpectAnnounced({});
}

TEST_F(LateRemovalTest, ComesAfterAServiceThatNeverWaits) {
    BeginHandling(Departure::Notices::WhileTheArrivalIsHandled);
    ExpectAnnounced(UpToTheArrival());
    BecomeQuiet();
    ASSERT_TRUE(Settle());
    ExpectAnnounced(OfRunningCamera(DBT_DEVICEREMOVECOMPLETE));
}

TEST_F(LateRemovalTest, ComesAtOnceOfACameraThatIsUnplugged) {
    BeginHandling(Departure::Notices::AfterTheArrivalIsHandled);
    BecomeQuiet();
    ASSERT_TRUE(Settle());
    TakeAnnounced();
    bus_->Unplug(0);
    ASSERT_TRUE(Settle());
    ExpectAnnounced({{DBT_DEVICEREMOVECOMPLETE, kUsbDeviceClass, links_.DfuUsb()}});
}

TEST_F(BusTest, TheRemovalOfACameraThatIsUnpluggedBetweenTwoModesIsNotLost) {
    auto camera = QuickCamera();
    camera.enumerateMs = 60'000;
    BusSettings settings;
    settings.cameras = {camera};
    settings.departures = {{.notices = Departure::Notices::AfterTheArrivalIsHandled}};
    BeginOn(settings);
    bus_->Plug(0);
    ASSERT_TRUE(Settle());
    TakeAnnounced();
    ASSERT_EQ(SendDfuModeCommand(*bus_->FindSource(links_.SensorCamera())).end, TransferEnd::Ok);
    ASSERT_TRUE(events_.WaitFor("camera", 2));
    bus_->Unplug(0);
    ASSERT_TRUE(Settle());
    ExpectAnnounced(OfRunningCamera(DBT_DEVICEREMOVECOMPLETE));
}

TEST_F(BusTest, HandsNoControlOutThatTheCameraDoesNotSendWhole) {
    auto camera = QuickCamera();
    camera.faults = {
        {.where = lab::Fault::Where::CommandRead, .what = lab::Fault::What::ShortReply, .value = 1023}};
    BeginRunning(camera);
    const auto source = bus_->FindSource(links_.SensorCamera());
    std::vector<std::uint8_t> reply(lab::VirtualCamera::kFrameSize);
    EXPECT_EQ(bus_->ReadReply(*source, reply).end, TransferEnd::Stall);
    EXPECT_EQ(events_.Named("firmware-reply").back().at("bytes"), 1023);
    EXPECT_EQ(events_.Named("firmware-reply").back().at("result"), HRESULT_FROM_WIN32(ERROR_GEN_FAILURE));
    EXPECT_EQ(bus_->ReadReply(*source, reply).end, TransferEnd::Ok);
    EXPECT_EQ(events_.Named("firmware-reply").back().at("bytes"), 1024);
}
