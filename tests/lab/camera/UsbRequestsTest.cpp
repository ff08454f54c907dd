#include "tests/lab/camera/CameraDriver.h"
#include "tests/lab/camera/UsbHost.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

// The standard requests in each state of the USB 2.0 standard, and what is no request at all.

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr auto kOk = TransferEnd::Ok;
constexpr auto kStall = TransferEnd::Stall;
constexpr std::array kStates{UsbState::Default, UsbState::Address, UsbState::Configured};

UsbHost HostIn(UsbState state, CameraSettings settings = {}) {
    UsbHost host(std::move(settings));
    host.PlugIn(state);
    return host;
}

UsbHost DfuHost(UsbState state, CameraSettings settings = {}) {
    UsbHost host(std::move(settings));
    host.PlugInDfuMode(state);
    return host;
}

struct Row {
    const char* name;
    std::uint8_t requestType;
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t length;
    std::array<TransferEnd, 3> ends;  // in the default, address and configured state
};

// Of the running camera at high speed.
constexpr std::array kRows{
    Row{"GET_STATUS of the device", 0x80, 0, 0, 0, 2, {kStall, kOk, kOk}},
    Row{"GET_STATUS of the device with an index", 0x80, 0, 0, 1, 2, {kStall, kStall, kStall}},
    Row{"GET_STATUS with a value", 0x80, 0, 1, 0, 2, {kStall, kStall, kStall}},
    Row{"GET_STATUS of interface 0", 0x81, 0, 0, 0, 2, {kStall, kStall, kOk}},
    Row{"GET_STATUS of interface 1", 0x81, 0, 0, 1, 2, {kStall, kStall, kOk}},
    Row{"GET_STATUS of no interface", 0x81, 0, 0, 2, 2, {kStall, kStall, kStall}},
    Row{"GET_STATUS of interface 256", 0x81, 0, 0, 0x100, 2, {kStall, kStall, kStall}},
    Row{"GET_STATUS of the default pipe", 0x82, 0, 0, 0, 2, {kStall, kOk, kOk}},
    Row{"GET_STATUS of the default pipe's IN side", 0x82, 0, 0, 0x80, 2, {kStall, kOk, kOk}},
    Row{"GET_STATUS of an endpoint of another setting", 0x82, 0, 0, 0x81, 2, {kStall, kStall, kStall}},
    Row{"GET_STATUS of something else", 0x83, 0, 0, 0, 2, {kStall, kStall, kStall}},
    Row{"GET_STATUS in the wrong direction", 0x00, 0, 0, 0, 2, {kStall, kStall, kStall}},
    Row{"CLEAR_FEATURE remote wake-up", 0x00, 1, 1, 0, 0, {kStall, kStall, kStall}},
    Row{"SET_FEATURE remote wake-up", 0x00, 3, 1, 0, 0, {kStall, kStall, kStall}},
    Row{"SET_FEATURE test mode", 0x00, 3, 2, 0x0100, 0, {kStall, kStall, kStall}},
    Row{"SET_FEATURE U1", 0x00, 3, 48, 0, 0, {kStall, kStall, kStall}},
    Row{"CLEAR_FEATURE halt of the default pipe", 0x02, 1, 0, 0, 0, {kStall, kOk, kOk}},
    Row{"SET_FEATURE halt of the default pipe", 0x02, 3, 0, 0, 0, {kStall, kStall, kStall}},
    Row{"SET_FEATURE halt of no endpoint", 0x02, 3, 0, 0x81, 0, {kStall, kStall, kStall}},
    Row{"SET_FEATURE of an interface", 0x01, 3, 0, 0, 0, {kStall, kStall, kStall}},
    Row{"SET_ADDRESS", 0x00, 5, 5, 0, 0, {kOk, kOk, kStall}},
    Row{"SET_ADDRESS above 127", 0x00, 5, 128, 0, 0, {kStall, kStall, kStall}},
    Row{"SET_ADDRESS of an interface", 0x01, 5, 5, 0, 0, {kStall, kStall, kStall}},
    Row{"GET_DESCRIPTOR", 0x80, 6, 0x0100, 0, 18, {kOk, kOk, kOk}},
    Row{"GET_DESCRIPTOR of an interface", 0x81, 6, 0x0100, 0, 18, {kStall, kStall, kStall}},
    Row{"SET_DESCRIPTOR", 0x00, 7, 0x0100, 0, 18, {kStall, kStall, kStall}},
    Row{"GET_CONFIGURATION", 0x80, 8, 0, 0, 1, {kStall, kOk, kOk}},
    Row{"SET_CONFIGURATION to 0", 0x00, 9, 0, 0, 0, {kStall, kOk, kOk}},
    Row{"SET_CONFIGURATION", 0x00, 9, 1, 0, 0, {kStall, kOk, kOk}},
    Row{"SET_CONFIGURATION to none", 0x00, 9, 2, 0, 0, {kStall, kStall, kStall}},
    Row{"GET_INTERFACE", 0x81, 10, 0, 1, 1, {kStall, kStall, kOk}},
    Row{"GET_INTERFACE of none", 0x81, 10, 0, 2, 1, {kStall, kStall, kStall}},
    Row{"GET_INTERFACE of the device", 0x80, 10, 0, 0, 1, {kStall, kStall, kStall}},
    Row{"SET_INTERFACE", 0x01, 11, 1, 1, 0, {kStall, kStall, kOk}},
    Row{"SET_INTERFACE to no setting", 0x01, 11, 1, 0, 0, {kStall, kStall, kStall}},
    Row{"SET_INTERFACE of none", 0x01, 11, 0, 2, 0, {kStall, kStall, kStall}},
    Row{"SYNCH_FRAME", 0x82, 12, 0, 0x81, 2, {kStall, kStall, kStall}},
    Row{"SET_SEL", 0x00, 0x30, 0, 0, 6, {kStall, kStall, kStall}},
    Row{"SET_ISOCH_DELAY", 0x00, 0x31, 40, 0, 0, {kStall, kStall, kStall}},
    Row{"request 2", 0x00, 2, 0, 0, 0, {kStall, kStall, kStall}},
    Row{"request 255", 0x80, 255, 0, 0, 8, {kStall, kStall, kStall}},
    Row{"a reserved kind", 0x60, 6, 0x0100, 0, 18, {kStall, kStall, kStall}},
    Row{"a vendor's request", 0xC0, 0x4D, 0, 7, 64, {kStall, kStall, kStall}},
    Row{"GET_CUR of the extension unit", 0xA1, 0x81, 0x0100, 0x0300, 1024, {kStall, kStall, kOk}},
    Row{"GET_CUR of a probe", 0xA1, 0x81, 0x0100, 1, 34, {kStall, kStall, kOk}},
    Row{"a class request of the device", 0xA0, 0x81, 0x0100, 0, 34, {kStall, kStall, kStall}},
};

TransferEnd Send(UsbHost& host, const Row& row) {
    if ((row.requestType & 0x80) != 0) {
        return host.Get(row.requestType, row.request, row.value, row.index, row.length).end;
    }
    return host.Set(row.requestType, row.request, row.value, row.index, Bytes(row.length));
}

TEST(UsbRequests, EndInEachStateAsTheStandardSays) {
    for (const Row& row : kRows) {
        for (std::size_t state = 0; state < kStates.size(); ++state) {
            UsbHost host = HostIn(kStates[state]);
            EXPECT_EQ(Send(host, row), row.ends[state]) << row.name << " in state " << state;
        }
    }
}

TEST(UsbRequests, WhatIsStalledLeavesTheDeviceAlone) {
    for (const Row& row : kRows) {
        for (std::size_t state = 0; state < kStates.size(); ++state) {
            UsbHost host = HostIn(kStates[state]);
            if (Send(host, row) == kStall) {
                EXPECT_EQ(host.device.State(), kStates[state]) << row.name;
            }
        }
    }
}

TEST(UsbRequests, MeetNothingWhenTheCameraIsAbsent) {
    UsbHost host;
    for (const Row& row : kRows) {
        EXPECT_EQ(Send(host, row), TransferEnd::Disconnected) << row.name;
    }
}

TEST(UsbRequests, AnAddressIsTakenAndGivenBack) {
    UsbHost host = HostIn(UsbState::Default);
    EXPECT_EQ(host.SetAddress(0), kOk);
    EXPECT_EQ(host.device.State(), UsbState::Default);
    EXPECT_EQ(host.SetAddress(127), kOk);
    EXPECT_EQ(host.device.State(), UsbState::Address);
    EXPECT_EQ(host.device.Address(), 127);
    EXPECT_EQ(host.SetAddress(3), kOk);
    EXPECT_EQ(host.device.Address(), 3);
    EXPECT_EQ(host.SetAddress(0), kOk);
    EXPECT_EQ(host.device.State(), UsbState::Default);
}

TEST(UsbRequests, TheConfigurationIsTold) {
    UsbHost host = HostIn(UsbState::Address);
    EXPECT_EQ(host.Get(0x80, 8, 0, 0, 1).bytes, Bytes{0});
    EXPECT_EQ(host.SetConfiguration(1), kOk);
    EXPECT_EQ(host.Get(0x80, 8, 0, 0, 1).bytes, Bytes{1});
    EXPECT_EQ(host.SetConfiguration(0), kOk);
    EXPECT_EQ(host.device.State(), UsbState::Address);
    EXPECT_EQ(host.Get(0x80, 8, 0, 0, 1).bytes, Bytes{0});
}

TEST(UsbRequests, AReplacedConfigurationIsChosenByItsOwnValue) {
    UsbHost host = DfuHost(UsbState::Address, {.configurationDescriptor = {9, 2, 18, 0, 1, 5, 0, 0x80, 50,  //
                                                                           9, 4, 0, 0, 0, 0xFE, 1, 2, 0}});
    EXPECT_EQ(host.SetConfiguration(1), kStall);
    EXPECT_EQ(host.SetConfiguration(5), kOk);
    EXPECT_EQ(host.Get(0x80, 8, 0, 0, 1).bytes, Bytes{5});
}

TEST(UsbRequests, AReplacedConfigurationThatIsTooShortIsChosenByOne) {
    UsbHost host = DfuHost(UsbState::Address, {.configurationDescriptor = {9, 2, 18}});
    EXPECT_EQ(host.SetConfiguration(1), kOk);
}

TEST(UsbRequests, TheAlternateSettingIsTold) {
    UsbHost host = HostIn(UsbState::Configured);
    EXPECT_EQ(host.Get(0x81, 10, 0, 1, 1).bytes, Bytes{0});
    EXPECT_EQ(host.SetInterface(1, 1), kOk);
    EXPECT_EQ(host.Get(0x81, 10, 0, 1, 1).bytes, Bytes{1});
    EXPECT_EQ(host.Get(0x81, 10, 0, 0, 1).bytes, Bytes{0});
    EXPECT_EQ(host.SetConfiguration(1), kOk);
    EXPECT_EQ(host.Get(0x81, 10, 0, 1, 1).bytes, Bytes{0});
}

TEST(UsbRequests, TheVideoEndpointHalts) {
    UsbHost host = HostIn(UsbState::Configured);
    host.SetInterface(1, 1);
    EXPECT_EQ(host.Get(0x82, 0, 0, 0x81, 2).bytes, (Bytes{0, 0}));
    EXPECT_EQ(host.Set(0x02, 3, 0, 0x81), kOk);
    EXPECT_EQ(host.Get(0x82, 0, 0, 0x81, 2).bytes, (Bytes{1, 0}));
    EXPECT_EQ(host.Set(0x02, 3, 1, 0x81), kStall);
    EXPECT_EQ(host.Set(0x02, 1, 0, 0x81), kOk);
    EXPECT_EQ(host.Get(0x82, 0, 0, 0x81, 2).bytes, (Bytes{0, 0}));
    EXPECT_EQ(host.Get(0x82, 0, 0, 0x01, 2).end, kStall);
}

TEST(UsbRequests, TheDeviceIsBusPoweredAndDoesNotWakeItsHost) {
    UsbHost host = HostIn(UsbState::Address);
    EXPECT_EQ(host.Get(0x80, 0, 0, 0, 2).bytes, (Bytes{0, 0}));
}

TEST(UsbRequests, SuperSpeedHasItsPowerStatesAndDelays) {
    UsbHost host = HostIn(UsbState::Default, {.speed = Speed::Super});
    EXPECT_EQ(host.Set(0x00, 0x31, 40, 0), kOk);
    EXPECT_EQ(host.Set(0x00, 0x30, 0, 0, Bytes(6)), kStall);
    host.SetAddress(4);
    EXPECT_EQ(host.Set(0x00, 0x30, 0, 0, Bytes(6)), kOk);
    EXPECT_EQ(host.Set(0x00, 3, 48, 0), kStall);
    host.SetConfiguration(1);
    EXPECT_EQ(host.Set(0x00, 3, 48, 0), kOk);
    EXPECT_EQ(host.Get(0x80, 0, 0, 0, 2).bytes, (Bytes{0x04, 0}));
    EXPECT_EQ(host.Set(0x00, 3, 49, 0), kOk);
    EXPECT_EQ(host.Get(0x80, 0, 0, 0, 2).bytes, (Bytes{0x0C, 0}));
    EXPECT_EQ(host.Set(0x00, 1, 48, 0), kOk);
    EXPECT_EQ(host.Get(0x80, 0, 0, 0, 2).bytes, (Bytes{0x08, 0}));
    EXPECT_EQ(host.Set(0x00, 3, 50, 0), kStall);
}

// As a Linux kernel's hub driver and uvcvideo do it.
TEST(UsbRequests, EnumerateTheRunningCameraAsLinuxDoes) {
    UsbHost host({.speed = Speed::Super, .serialNumber = "KV4000001"});
    host.device.Plug(host.nowMs);
    host.device.Reset(host.nowMs);
    EXPECT_EQ(host.Descriptor(DescriptorType::Device, 0, 64).bytes.size(), 18U);
    host.device.Reset(host.nowMs);
    EXPECT_EQ(host.SetAddress(2), kOk);
    EXPECT_EQ(host.Set(0x00, 0x31, 40, 0), kOk);
    EXPECT_EQ(host.Descriptor(DescriptorType::Device, 0, 18).bytes.size(), 18U);
    EXPECT_EQ(host.Descriptor(DescriptorType::BinaryObjectStore, 0, 5).bytes, (Bytes{5, 0x0F, 22, 0, 2}));
    EXPECT_EQ(host.Descriptor(DescriptorType::BinaryObjectStore, 0, 22).bytes.size(), 22U);
    const Bytes head = host.Descriptor(DescriptorType::Configuration, 0, 9).bytes;
    ASSERT_EQ(head.size(), 9U);
    const auto total = static_cast<std::uint16_t>(head[2] | head[3] << 8);
    EXPECT_EQ(host.Descriptor(DescriptorType::Configuration, 0, total).bytes.size(), total);
    const Bytes languages = host.Descriptor(DescriptorType::String, 0, 255).bytes;
    ASSERT_EQ(languages, (Bytes{4, 3, 0x09, 0x04}));
    for (const std::uint8_t index : std::array<std::uint8_t, 3>{2, 1, 3}) {
        EXPECT_EQ(host.Descriptor(DescriptorType::String, index, 255, 0x0409).end, kOk);
    }
    EXPECT_EQ(host.Set(0x00, 0x30, 0, 0, Bytes(6)), kOk);
    EXPECT_EQ(host.SetConfiguration(head[5]), kOk);
    EXPECT_EQ(host.SetInterface(1, 0), kOk);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetDef, 1, 1, 34).bytes.size(), 34U);
    EXPECT_EQ(host.GetVideo(UvcRequest::GetCur, 1, 1, 34).bytes.size(), 34U);
    EXPECT_EQ(host.device.Camera().Mode(), BusMode::Running);
}

TEST(UsbRequests, EnumerateDfuModeAsLinuxDoes) {
    UsbHost host = DfuHost(UsbState::Default);
    host.device.Reset(host.nowMs);
    EXPECT_EQ(host.Descriptor(DescriptorType::Device, 0, 64).bytes.size(), 18U);
    host.device.Reset(host.nowMs);
    EXPECT_EQ(host.SetAddress(3), kOk);
    EXPECT_EQ(host.Descriptor(DescriptorType::BinaryObjectStore, 0, 5).bytes, (Bytes{5, 0x0F, 33, 0, 1}));
    EXPECT_EQ(host.Descriptor(DescriptorType::Configuration, 0, 27).bytes.size(), 27U);
    EXPECT_EQ(host.SetConfiguration(1), kOk);
    EXPECT_EQ(host.Get(0xA1, 5, 0, 0, 1).bytes, Bytes{2});
    EXPECT_EQ(host.device.Camera().Transfers(), 1U);
}

}  // namespace
}  // namespace lab::test
