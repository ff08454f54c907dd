#include "tests/lab/camera/CameraDriver.h"
#include "tests/lab/camera/UsbHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

// What a host meets in both modes: resets, the video function, updates, and the faults on the way.

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using What = Fault::What;
using Where = Fault::Where;

constexpr auto kOk = TransferEnd::Ok;
constexpr auto kStall = TransferEnd::Stall;
constexpr std::uint16_t kExtensionUnit = 0x0300;  // unit 3 of interface 0
constexpr std::uint8_t kCommand = 1;
constexpr std::uint16_t kFrameSize = 1024;

UsbHost RunningHost(CameraSettings settings = {}) {
    UsbHost host(std::move(settings));
    host.PlugIn(UsbState::Configured);
    return host;
}

UsbHost DfuHost(CameraSettings settings = {}) {
    UsbHost host(std::move(settings));
    host.PlugInDfuMode();
    return host;
}

Reading GetDfu(UsbHost& host, DfuRequest request, std::uint16_t length, std::uint16_t number = 0) {
    return host.Get(0xA1, static_cast<std::uint8_t>(request), 0, number, length);
}

TransferEnd SetDfu(UsbHost& host, DfuRequest request, std::uint16_t value, Bytes data = {},
                   std::uint16_t number = 0) {
    return host.Set(0x21, static_cast<std::uint8_t>(request), value, number, std::move(data));
}

Bytes StateOf(UsbHost& host) {
    return GetDfu(host, DfuRequest::GetState, 1).bytes;
}

TEST(UsbDevice, ResetsBeforeTheConfigurationLeaveDfuMode) {
    UsbHost host;
    host.PlugInDfuMode(UsbState::Default);
    for (int reset = 0; reset < 3; ++reset) {
        host.device.Reset(host.nowMs);
        host.SetAddress(UsbHost::kAddress);
        host.Descriptor(DescriptorType::Device, 0, 64);
    }
    host.device.Reset(host.nowMs);
    EXPECT_EQ(host.device.Camera().Mode(), BusMode::Dfu);
    EXPECT_EQ(host.device.State(), UsbState::Default);
    EXPECT_TRUE(host.Configure());
    EXPECT_EQ(StateOf(host), Bytes{2});
}

TEST(UsbDevice, AResetAfterTheConfigurationEndsDfuMode) {
    UsbHost host = DfuHost();
    host.device.Reset(host.nowMs);
    EXPECT_EQ(host.device.Camera().Mode(), BusMode::Running);
    EXPECT_EQ(host.device.State(), UsbState::Default);
    EXPECT_EQ(host.Descriptor(DescriptorType::Device, 0, 18).bytes[10], 0x00);
}

TEST(UsbDevice, AConfigurationThatIsTakenBackIsNone) {
    UsbHost host = DfuHost();
    host.SetConfiguration(0);
    host.device.Reset(host.nowMs);
    EXPECT_EQ(host.device.Camera().Mode(), BusMode::Dfu);
}

TEST(UsbDevice, AResetTakesAddressConfigurationAndSettings) {
    UsbHost host = RunningHost();
    host.SetInterface(1, 1);
    host.Set(0x02, 3, 0, 0x81);
    host.device.Reset(host.nowMs);
    EXPECT_EQ(host.device.State(), UsbState::Default);
    EXPECT_EQ(host.device.Address(), 0);
    EXPECT_EQ(host.device.Interfaces(), nullptr);
    ASSERT_TRUE(host.Configure());
    EXPECT_EQ(host.device.Interfaces()->Alternate(1), 0);
    host.SetInterface(1, 1);
    EXPECT_EQ(host.device.Interfaces()->IsHalted(0x81), false);
}

TEST(UsbDevice, AResetOfAnAbsentCameraIsNothing) {
    UsbHost host;
    host.device.Reset(host.nowMs);
    EXPECT_EQ(host.device.State(), UsbState::Absent);
    EXPECT_EQ(host.device.Camera().Arrivals(), 0U);
}

TEST(UsbDevice, ComingBackIsComingNew) {
    UsbHost host = RunningHost();
    host.SetVideo(kExtensionUnit, kCommand, MakeFrame(0x1E, {1, 0, 0, 0}));
    EXPECT_EQ(host.device.State(), UsbState::Configured);
    host.Pass(host.device.Camera().Settings().detachMs);
    EXPECT_EQ(host.device.State(), UsbState::Absent);
    EXPECT_EQ(host.Descriptor(DescriptorType::Device).end, TransferEnd::Disconnected);
    host.Pass(host.device.Camera().Settings().enumerateMs);
    EXPECT_EQ(host.device.State(), UsbState::Default);
    EXPECT_EQ(host.device.Camera().Arrivals(), 2U);
}

TEST(UsbDevice, ComingBackInOneStepIsComingNewToo) {
    UsbHost host = RunningHost();
    host.SetVideo(kExtensionUnit, kCommand, MakeFrame(0x1E, {1, 0, 0, 0}));
    host.Pass(10'000);
    EXPECT_EQ(host.device.State(), UsbState::Default);
    EXPECT_EQ(host.device.Camera().Mode(), BusMode::Dfu);
}

TEST(UsbDevice, PullingThePlugTakesAllAway) {
    UsbHost host = RunningHost();
    host.device.Unplug();
    EXPECT_EQ(host.device.State(), UsbState::Absent);
    host.device.Plug(host.nowMs);
    EXPECT_EQ(host.device.State(), UsbState::Default);
    EXPECT_EQ(host.device.Configuration(), 0);
}

TEST(UsbDevice, ARuntimeDeviceGoesToDfuModeByDetachAndReset) {
    UsbHost host = RunningHost({.personality = Personality::Strict});
    EXPECT_EQ(GetDfu(host, DfuRequest::GetState, 1, 2).bytes, Bytes{0});
    EXPECT_EQ(SetDfu(host, DfuRequest::Detach, 1000, {}, 2), kOk);
    EXPECT_EQ(GetDfu(host, DfuRequest::GetState, 1, 2).bytes, Bytes{1});
    host.device.Reset(host.nowMs);
    EXPECT_EQ(host.device.Camera().Mode(), BusMode::Dfu);
    EXPECT_EQ(host.device.State(), UsbState::Default);
    ASSERT_TRUE(host.Configure());
    EXPECT_EQ(StateOf(host), Bytes{2});
}

TEST(UsbDevice, TheRuntimeInterfaceIsFoundByItsNumberBehindHidToo) {
    UsbHost host = RunningHost({.traits = DfuTraits{.hasHidInFront = true}});
    EXPECT_EQ(GetDfu(host, DfuRequest::GetState, 1, 2).bytes, Bytes{0});
    EXPECT_EQ(GetDfu(host, DfuRequest::GetState, 1, 1).end, kStall);
    EXPECT_EQ(GetDfu(host, DfuRequest::GetState, 1, 3).end, kStall);
}

TEST(UsbDevice, TheKv400HasNoRuntimeInterface) {
    UsbHost host = RunningHost();
    EXPECT_EQ(GetDfu(host, DfuRequest::GetState, 1, 2).end, kStall);
}

TEST(UsbDevice, TheCommandControlTellsItsSizeAndAbilities) {
    UsbHost host = RunningHost();
    EXPECT_EQ(host.GetVideo(UvcRequest::GetLen, kExtensionUnit, kCommand, 2).bytes, (Bytes{0x00, 0x04}));
    EXPECT_EQ(host.GetVideo(UvcRequest::GetInfo, kExtensionUnit, kCommand, 1).bytes, Bytes{3});
    EXPECT_EQ(host.GetVideo(UvcRequest::GetMin, kExtensionUnit, kCommand, kFrameSize).bytes,
              Bytes(1024, 0x00));
    EXPECT_EQ(host.GetVideo(UvcRequest::GetMax, kExtensionUnit, kCommand, kFrameSize).bytes,
              Bytes(1024, 0xFF));
    EXPECT_EQ(host.GetVideo(UvcRequest::GetDef, kExtensionUnit, kCommand, kFrameSize).bytes,
              Bytes(1024, 0x00));
    Bytes step(1024, 0x00);
    step[0] = 1;
    EXPECT_EQ(host.GetVideo(UvcRequest::GetRes, kExtensionUnit, kCommand, kFrameSize).bytes, step);
}

TEST(UsbDevice, CommandsReachTheFirmware) {
    UsbHost host = RunningHost({.version = {5, 10, 2, 1}});
    EXPECT_EQ(host.SetVideo(kExtensionUnit, kCommand, MakeFrame(0x10)), kOk);
    const Bytes reply = host.GetVideo(UvcRequest::GetCur, kExtensionUnit, kCommand, kFrameSize).bytes;
    ASSERT_EQ(reply.size(), 1024U);
    EXPECT_EQ(Bytes(reply.begin(), reply.begin() + 4), (Bytes{0x10, 0, 0, 0}));
    EXPECT_EQ(Bytes(reply.begin() + 16, reply.begin() + 20), (Bytes{1, 2, 10, 5}));
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, kExtensionUnit, kCommand, 20).bytes,
              Bytes(reply.begin(), reply.begin() + 20));
}

TEST(UsbDevice, MalformedFramesStall) {
    UsbHost host = RunningHost();
    Bytes frame = MakeFrame(0x10);
    frame.pop_back();
    EXPECT_EQ(host.SetVideo(kExtensionUnit, kCommand, frame), kStall);
    EXPECT_EQ(host.SetVideo(kExtensionUnit, kCommand, Bytes(1024)), kStall);
}

TEST(UsbDevice, FaultsOfTheExtensionUnitStrikeItsContentAlone) {
    UsbHost host = RunningHost({.faults = {{.where = Where::CommandRead, .what = What::Stall},
                                           {.where = Where::CommandWrite, .what = What::Timeout}}});
    EXPECT_EQ(host.GetVideo(UvcRequest::GetLen, kExtensionUnit, kCommand, 2).end, kOk);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetMax, kExtensionUnit, kCommand, kFrameSize).end, kOk);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, kExtensionUnit, kCommand, kFrameSize).end, kStall);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, kExtensionUnit, kCommand, kFrameSize).end, kOk);
    EXPECT_EQ(host.SetVideo(kExtensionUnit, kCommand, MakeFrame(0x10)), TransferEnd::Timeout);
    EXPECT_EQ(host.SetVideo(kExtensionUnit, kCommand, MakeFrame(0x10)), kOk);
}

TEST(UsbDevice, AFaultMayTakeTheCameraOffTheBus) {
    UsbHost host = RunningHost({.faults = {{.where = Where::CommandRead, .what = What::Unplug}}});
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, kExtensionUnit, kCommand, kFrameSize).end,
              TransferEnd::Disconnected);
    EXPECT_EQ(host.device.State(), UsbState::Absent);
}

TEST(UsbDevice, ARefusedControlTellsWhy) {
    UsbHost host = RunningHost({.nodes = {TopologyNode::Foreign, TopologyNode::ExtensionUnit,
                                          TopologyNode::Broken, TopologyNode::Processing}});
    const auto errorAfter = [&host](std::uint16_t index, std::uint8_t control, UvcRequest request) {
        EXPECT_EQ(host.GetVideo(request, index, control, kFrameSize).end, kStall);
        return host.GetVideo(UvcRequest::GetCur, 0x0000, 2, 1).bytes;
    };
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, 0x0000, 2, 1).bytes, Bytes{0});
    EXPECT_EQ(host.GetVideo(UvcRequest::GetInfo, 0x0000, 2, 1).bytes, Bytes{1});
    EXPECT_EQ(errorAfter(0x0700, 1, UvcRequest::GetCur), Bytes{5});
    EXPECT_EQ(errorAfter(0x0100, 1, UvcRequest::GetCur), Bytes{6});  // camera terminal
    EXPECT_EQ(errorAfter(0x0200, 1, UvcRequest::GetCur), Bytes{6});  // foreign
    EXPECT_EQ(errorAfter(0x0400, 1, UvcRequest::GetCur), Bytes{6});  // broken
    EXPECT_EQ(errorAfter(0x0500, 1, UvcRequest::GetCur), Bytes{6});  // processing
    EXPECT_EQ(errorAfter(0x0600, 1, UvcRequest::GetCur), Bytes{6});  // output terminal
    EXPECT_EQ(errorAfter(0x0000, 1, UvcRequest::GetCur), Bytes{6});  // the interface itself
    EXPECT_EQ(errorAfter(kExtensionUnit, 2, UvcRequest::GetCur), Bytes{6});
    EXPECT_EQ(errorAfter(kExtensionUnit, 1, UvcRequest{0x77}), Bytes{7});
    EXPECT_EQ(errorAfter(kExtensionUnit, 1, UvcRequest::SetCur), Bytes{7});
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, kExtensionUnit, 1, kFrameSize).end, kOk);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, 0x0000, 2, 1).bytes, Bytes{0});
    EXPECT_EQ(host.SetVideo(kExtensionUnit, kCommand, Bytes(1024)), kStall);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, 0x0000, 2, 1).bytes, Bytes{0xFF});
}

TEST(UsbDevice, ACameraWithoutAnExtensionUnitHasNoCommandControl) {
    UsbHost host = RunningHost({.hasExtensionUnit = false});
    EXPECT_EQ(host.GetVideo(UvcRequest::GetLen, kExtensionUnit, kCommand, 2).end, kStall);
}

TEST(UsbDevice, TheStreamIsNegotiatedAsTheOneThatThereIs) {
    UsbHost host = RunningHost();
    const Bytes expected{1, 0,    1,    1,    0x15, 0x16, 0x05, 0x00, 0, 0,    0,    0,    0,    0, 0, 0, 33,
                         0, 0x00, 0x20, 0x1C, 0x00, 0x00, 0x04, 0,    0, 0x00, 0x6C, 0xDC, 0x02, 3, 0, 0, 0};
    for (const auto request :
         {UvcRequest::GetCur, UvcRequest::GetDef, UvcRequest::GetMin, UvcRequest::GetMax}) {
        EXPECT_EQ(host.GetVideo(request, 1, 1, 34).bytes, expected);
    }
    EXPECT_EQ(host.GetVideo(UvcRequest::GetDef, 1, 1, 26).bytes,
              Bytes(expected.begin(), expected.begin() + 26));
    EXPECT_EQ(host.GetVideo(UvcRequest::GetLen, 1, 1, 2).bytes, (Bytes{34, 0}));
    EXPECT_EQ(host.GetVideo(UvcRequest::GetInfo, 1, 1, 1).bytes, Bytes{3});

    EXPECT_EQ(host.SetVideo(1, 1, Bytes(34, 0x77)), kOk);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, 1, 1, 34).bytes, expected);
    EXPECT_EQ(host.SetVideo(1, 2, Bytes(34, 0x77)), kStall);
    EXPECT_EQ(host.SetVideo(1, 2, expected), kOk);
    EXPECT_EQ(host.SetVideo(1, 2, Bytes(expected.begin(), expected.begin() + 26)), kOk);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, 1, 2, 34).bytes, expected);
}

TEST(UsbDevice, WhatTheStreamDoesNotHaveStalls) {
    UsbHost host = RunningHost();
    EXPECT_EQ(host.SetVideo(1, 1, Bytes(25)), kStall);
    EXPECT_EQ(host.SetVideo(1, 1, Bytes(35)), kStall);
    EXPECT_EQ(host.SetVideo(1, 3, Bytes(34)), kStall);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, 1, 3, 34).end, kStall);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetRes, 1, 1, 34).end, kStall);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetDef, 1, 2, 34).end, kStall);
    EXPECT_EQ(host.GetVideo(UvcRequest::SetCur, 1, 1, 34).end, kStall);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, 0x0101, 1, 34).end, kStall);
}

TEST(UsbDevice, DfuRequestsNeedAConfiguration) {
    UsbHost host;
    host.PlugInDfuMode(UsbState::Address);
    EXPECT_EQ(GetDfu(host, DfuRequest::GetState, 1).end, kStall);
    EXPECT_EQ(host.device.Camera().Transfers(), 0U);
    host.SetConfiguration(1);
    EXPECT_EQ(StateOf(host), Bytes{2});
}

TEST(UsbDevice, DfuRequestsGoToTheDfuInterface) {
    UsbHost host = DfuHost({.personality = Personality::BehindHid});
    EXPECT_EQ(GetDfu(host, DfuRequest::GetState, 1, 1).bytes, Bytes{2});
    EXPECT_EQ(GetDfu(host, DfuRequest::GetState, 1, 0).end, kStall);
}

TEST(UsbDevice, AWholeUpdate) {
    UsbHost host = DfuHost();
    const Bytes image = MakeImage(2500, {6, 0, 0, 1});
    std::uint16_t block = 0;
    for (std::size_t offset = 0; offset < image.size(); offset += 1024, ++block) {
        const auto begin = image.begin() + static_cast<std::ptrdiff_t>(offset);
        const auto end =
            image.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(offset + 1024, 2500));
        ASSERT_EQ(SetDfu(host, DfuRequest::Dnload, block, Bytes(begin, end)), kOk);
        ASSERT_EQ(GetDfu(host, DfuRequest::GetStatus, 6).bytes, (Bytes{0, 0, 0, 0, 5, 0}));
    }
    ASSERT_EQ(SetDfu(host, DfuRequest::Dnload, block), kOk);
    EXPECT_EQ(GetDfu(host, DfuRequest::GetStatus, 6).bytes, (Bytes{0, 0x2C, 0x01, 0, 7, 0}));
    host.Pass(300);
    EXPECT_EQ(GetDfu(host, DfuRequest::GetStatus, 6).bytes, (Bytes{0, 0, 0, 0, 8, 0}));
    EXPECT_EQ(GetDfu(host, DfuRequest::GetStatus, 6).end, TransferEnd::Disconnected);
    EXPECT_EQ(host.device.State(), UsbState::Absent);
    host.Pass(200);
    EXPECT_EQ(host.device.Camera().Mode(), BusMode::Running);
    EXPECT_EQ(host.device.Camera().Version(), "6.0.0.1");
    EXPECT_EQ(host.device.Camera().Flash(), image);
}

TEST(UsbDevice, AlternateSettingsOfTheDfuInterfaceReachTheCamera) {
    UsbHost host = DfuHost({.personality = Personality::Forgetful});
    SetDfu(host, DfuRequest::Dnload, 0, MakeImage(64));
    EXPECT_NE(StateOf(host), Bytes{2});
    EXPECT_EQ(host.SetInterface(0, 1), kStall);
    EXPECT_NE(StateOf(host), Bytes{2});
    EXPECT_EQ(host.SetInterface(0, 0), kOk);
    EXPECT_EQ(StateOf(host), Bytes{2});
}

TEST(UsbDevice, TheHidInterfaceHasAReportAsLongAsItSays) {
    UsbHost host = DfuHost({.personality = Personality::BehindHid});
    const Bytes report = host.Get(0x81, 6, 0x2200, 0, 0xFFFF).bytes;
    EXPECT_EQ(report, (Bytes{0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x09, 0x02, 0x15, 0x00,
                             0x26, 0xFF, 0x00, 0x75, 0x08, 0x95, 0x08, 0xB1, 0x02, 0xC0}));
    const Bytes configuration = host.Descriptor(DescriptorType::Configuration).bytes;
    EXPECT_EQ(configuration[25] + 256 * configuration[26], 21);
    EXPECT_EQ(host.Get(0x81, 6, 0x2200, 0, 7).bytes, Bytes(report.begin(), report.begin() + 7));
}

TEST(UsbDevice, NoOtherInterfaceHasAReport) {
    UsbHost host = DfuHost({.personality = Personality::BehindHid});
    EXPECT_EQ(host.Get(0x81, 6, 0x2200, 1, 64).end, kStall);
    EXPECT_EQ(host.Get(0x81, 6, 0x2201, 0, 64).end, kStall);
    EXPECT_EQ(host.Get(0x82, 6, 0x2200, 0, 64).end, kStall);
    host.SetConfiguration(0);
    EXPECT_EQ(host.Get(0x81, 6, 0x2200, 0, 64).end, kStall);
    UsbHost running = RunningHost({.personality = Personality::BehindHid});
    EXPECT_EQ(running.Get(0x81, 6, 0x2200, 0, 64).end, kStall);
    UsbHost without = DfuHost();
    EXPECT_EQ(without.Get(0x81, 6, 0x2200, 0, 64).end, kStall);
    UsbHost replaced =
        DfuHost({.personality = Personality::BehindHid,
                 .configurationDescriptor = {9,    2, 27, 0, 1, 1,    0, 0x80, 50, 9, 4, 0,    0, 0,
                                             0xFE, 1, 2,  0, 9, 0x21, 3, 0,    0,  0, 4, 0x10, 1}});
    EXPECT_EQ(replaced.Get(0x81, 6, 0x2200, 0, 64).end, kStall);
}

TEST(UsbDevice, SettingsOfTheHidInterfaceDoNot) {
    UsbHost host =
        DfuHost({.traits = DfuTraits{.setInterface = DfuTraits::SetInterface::Stalls, .hasHidInFront = true},
                 .faults = {{.where = Where::SetInterface, .what = What::Unplug}}});
    EXPECT_EQ(host.SetInterface(0, 0), kOk);
    EXPECT_EQ(host.SetInterface(1, 0), TransferEnd::Disconnected);
}

TEST(UsbDevice, ABootLoaderMayRefuseItsSetting) {
    UsbHost host = DfuHost({.traits = DfuTraits{.setInterface = DfuTraits::SetInterface::Stalls}});
    EXPECT_EQ(host.SetInterface(0, 0), kStall);
}

TEST(UsbDevice, FaultsOfDescriptorsStrikeTheDriversReadsAlone) {
    UsbHost host({.faults = {{.where = Where::GetDescriptor, .what = What::Stall, .skip = 1}}});
    host.PlugInDfuMode(UsbState::Default);
    const auto read = [&host](DescriptorType type) { return host.Descriptor(type).end; };
    for (int time = 0; time < 3; ++time) {
        EXPECT_EQ(read(DescriptorType::Device), kOk);
        EXPECT_EQ(read(DescriptorType::Configuration), kOk);
    }
    host.SetAddress(UsbHost::kAddress);
    EXPECT_EQ(read(DescriptorType::Configuration), kOk);
    host.SetConfiguration(1);
    EXPECT_EQ(read(DescriptorType::BinaryObjectStore), kOk);  // not counted
    EXPECT_EQ(read(DescriptorType::Device), kOk);
    EXPECT_EQ(read(DescriptorType::Configuration), kStall);
    EXPECT_EQ(read(DescriptorType::Configuration), kOk);
}

TEST(UsbDevice, ADescriptorMayComeShort) {
    UsbHost host =
        DfuHost({.faults = {{.where = Where::GetDescriptor, .what = What::ShortReply, .value = 4}}});
    EXPECT_EQ(host.Descriptor(DescriptorType::Configuration).bytes.size(), 4U);
    EXPECT_EQ(host.Descriptor(DescriptorType::Configuration).bytes.size(), 27U);
}

TEST(UsbDevice, LateAnswersTellTheirTime) {
    UsbHost host = DfuHost({.personality = Personality::AddressedFlash, .blockMs = 400});
    SetDfu(host, DfuRequest::Dnload, 0, MakeImage(64));
    EXPECT_EQ(GetDfu(host, DfuRequest::GetStatus, 6).bytes[4], 4);  // dfuDNBUSY, and deaf from here on
    Bytes state(1);
    const TransferResult result =
        host.device.ControlTransfer({.requestType = 0xA1, .request = 5, .length = 1}, state, host.nowMs);
    EXPECT_EQ(result.end, kOk);
    EXPECT_EQ(result.tookMs, 400U);
}

TEST(UsbDevice, AConfigurationWithoutADfuInterfaceTakesNoDfuRequest) {
    UsbHost host(
        {.personality = Personality::Strict, .configurationDescriptor = {9, 2, 9, 0, 0, 1, 0, 0x80, 50}});
    host.PlugIn(UsbState::Configured);
    EXPECT_EQ(GetDfu(host, DfuRequest::GetState, 1, 2).end, kStall);
}

}  // namespace
}  // namespace lab::test
