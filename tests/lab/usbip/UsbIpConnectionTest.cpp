#include "lab/usbip/UsbIpConnection.h"

#include "lab/usbip/UsbIpPort.h"
#include "tests/lab/camera/CameraDriver.h"
#include "tests/lab/usbip/UsbIpClient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

// Served cameras as a USB/IP host meets them, over a real connection.

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Reply = UsbIpClient::Reply;
using nlohmann::json;

constexpr std::uint32_t kSubmitReply = 3;
constexpr std::uint32_t kUnlinkReply = 4;
constexpr std::int32_t kBrokenPipe = -32;
constexpr std::int32_t kConnectionReset = -104;
constexpr std::int32_t kShutDown = -108;
constexpr std::size_t kDeviceSize = 312;

class UsbIpConnectionTest : public testing::Test {
  protected:
    void Begin(std::vector<CameraSettings> settings = {{}}) {
        cameras_ = std::make_unique<ServedCameras>(settings,
                                                   [this](const json& event) { events_.push_back(event); });
        Socket listener = Socket::Listen("tcp:127.0.0.1:0");
        port_ = listener.Port();
        loop_.Add(std::make_unique<UsbIpPort>(std::move(listener), *cameras_, imported_, loop_));
        for (std::size_t camera = 0; camera < cameras_->Count(); ++camera) {
            cameras_->At(camera).Plug(nowMs_);
        }
    }

    void BeginImported(CameraSettings settings = {}) {
        Begin({std::move(settings)});
        client_ = Connect();
        client_->Import("1-1");
        ASSERT_TRUE(Taken(8 + kDeviceSize).has_value());
        EXPECT_EQ(Control({0x00, 9, 1, 0, 0, 0, 0, 0}), (Reply{kSubmitReply, 0, 0, 0, {}}));
    }

    void BeginInDfuMode(CameraSettings settings = {}) {
        BeginImported(std::move(settings));
        Control({0x21, 0x01, 0, 1, 0, 3, 0, 4}, MakeFrame(0x1E, {1, 0, 0, 0}));
        Pass(50);
        Pass(200);
        client_ = Connect();
        client_->Import("1-1");
        ASSERT_TRUE(Taken(8 + kDeviceSize).has_value());
        Control({0x00, 9, 1, 0, 0, 0, 0, 0});
        ASSERT_EQ(cameras_->At(0).Device().Camera().Mode(), BusMode::Dfu);
    }

    std::unique_ptr<UsbIpClient> Connect() {
        return std::make_unique<UsbIpClient>(Socket::Connect("tcp:127.0.0.1:" + std::to_string(port_)));
    }

    void Pass(std::uint64_t ms) {
        nowMs_ += ms;
        cameras_->Advance(nowMs_);
        Rounds();
    }

    void Rounds() {
        for (int round = 0; round < 5; ++round) {
            isOpen_ = client_ == nullptr || client_->Exchange();
            loop_.RunOnce(2);
        }
        isOpen_ = client_ == nullptr || client_->Exchange();
    }

    // Waits for so many bytes; a connection within the machine takes its time now and then.
    std::optional<Bytes> Taken(std::size_t count) {
        std::optional<Bytes> taken;
        for (int attempt = 0; attempt < 100 && !taken; ++attempt) {
            Rounds();
            taken = client_->Take(count);
        }
        return taken;
    }

    std::optional<Reply> Answer(bool isToHost) {
        std::optional<Reply> reply;
        for (int attempt = 0; attempt < 20 && !reply; ++attempt) {
            Rounds();
            reply = client_->TakeReply(isToHost);
        }
        return reply;
    }

    // The reply, whose sequence number is that of the request, without it.
    std::optional<Reply> Control(const Bytes& setup, const Bytes& data = {}) {
        const bool isToHost = (setup[0] & 0x80) != 0;
        const auto length = static_cast<std::uint32_t>(setup[6] | setup[7] << 8);
        client_->Submit(++sequence_, 0, isToHost, length, setup, data);
        std::optional<Reply> reply = Answer(isToHost);
        if (reply) {
            EXPECT_EQ(std::exchange(reply->sequence, 0), sequence_);
        }
        return reply;
    }

    std::uint64_t nowMs_ = 1000;
    std::uint32_t sequence_ = 0;
    std::uint16_t port_ = 0;
    bool isOpen_ = true;
    std::vector<json> events_;
    ImportedCameras imported_;
    std::unique_ptr<ServedCameras> cameras_;
    ServerLoop loop_{[this] { return nowMs_; }};
    std::unique_ptr<UsbIpClient> client_;
};

const Bytes kGetState{0xA1, 5, 0, 0, 0, 0, 1, 0};

TEST_F(UsbIpConnectionTest, ListsTheCamerasThatAreThere) {
    Begin({{}, {.speed = Speed::Super}});
    cameras_->At(0).Unplug(nowMs_);
    client_ = Connect();
    client_->AskForList();
    const auto reply = Taken(12 + kDeviceSize + 2 * 4);
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(Bytes(reply->begin(), reply->begin() + 12), (Bytes{0x01, 0x11, 0, 5, 0, 0, 0, 0, 0, 0, 0, 1}));
    const Bytes device(reply->begin() + 12, reply->end());
    EXPECT_EQ(std::string(device.begin() + 256, device.begin() + 259), "1-2");
    EXPECT_EQ(device[259], 0);
    EXPECT_EQ(Bytes(device.begin() + 288, device.end()),
              (Bytes{0,    0,    0,    1,    0,    0,    0,    2,    0, 0, 0, 5,  //
                     0x2F, 0x1A, 0x7E, 0x00, 0x01, 0x00, 0xEF, 0x02, 1, 0, 1, 2,  //
                     0x0E, 1,    0,    0,    0x0E, 2,    0,    0}));
    EXPECT_EQ(Taken(1), std::nullopt);
}

TEST_F(UsbIpConnectionTest, ListsNothingWhenNothingIsThere) {
    Begin();
    cameras_->At(0).Unplug(nowMs_);
    client_ = Connect();
    client_->AskForList();
    EXPECT_EQ(Taken(12), (Bytes{0x01, 0x11, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(UsbIpConnectionTest, AnImportedCameraIsConfiguredAndAnswers) {
    BeginImported();
    EXPECT_EQ(cameras_->At(0).Device().State(), UsbState::Configured);
    const auto device = Control({0x80, 6, 0, 1, 0, 0, 64, 0});
    ASSERT_TRUE(device.has_value());
    EXPECT_EQ(device->status, 0);
    EXPECT_EQ(device->transferred, 18U);
    EXPECT_EQ(device->data.size(), 18U);
}

TEST_F(UsbIpConnectionTest, ACameraIsImportedOnce) {
    BeginImported();
    const auto first = std::exchange(client_, Connect());
    client_->Import("1-1");
    EXPECT_EQ(Taken(8), (Bytes{0x01, 0x11, 0, 3, 0, 0, 0, 1}));
    client_->AskForList();
    EXPECT_EQ(Taken(12), (Bytes{0x01, 0x11, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(UsbIpConnectionTest, ACameraThatDoesNotExistIsRefused) {
    Begin();
    client_ = Connect();
    client_->Import("1-2");
    EXPECT_EQ(Taken(8), (Bytes{0x01, 0x11, 0, 3, 0, 0, 0, 1}));
}

TEST_F(UsbIpConnectionTest, AHostThatLeavesGivesTheCameraBack) {
    BeginImported();
    client_.reset();
    Rounds();
    EXPECT_TRUE(imported_.empty());
    client_ = Connect();
    client_->Import("1-1");
    const auto reply = Taken(8);
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ((*reply)[7], 0);
}

TEST_F(UsbIpConnectionTest, CommandsReachTheFirmware) {
    BeginImported();
    EXPECT_EQ(Control({0x21, 0x01, 0, 1, 0, 3, 0, 4}, MakeFrame(0x10)),
              (Reply{kSubmitReply, 0, 0, 1024, {}}));
    const auto reply = Control({0xA1, 0x81, 0, 1, 0, 3, 0, 4});
    ASSERT_TRUE(reply.has_value());
    ASSERT_EQ(reply->data.size(), 1024U);
    EXPECT_EQ(reply->data[0], 0x10);
}

TEST_F(UsbIpConnectionTest, ACameraThatLeavesEndsTheConnection) {
    BeginImported();
    Control({0x21, 0x01, 0, 1, 0, 3, 0, 4}, MakeFrame(0x1E, {1, 0, 0, 0}));
    EXPECT_TRUE(isOpen_);
    Pass(50);
    EXPECT_FALSE(isOpen_);
    EXPECT_TRUE(imported_.empty());
    Pass(200);
    client_ = Connect();
    client_->AskForList();
    const auto reply = Taken(12 + kDeviceSize + 4);
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ((*reply)[12 + 303], 0x01);  // the product of DFU mode
    EXPECT_EQ(Bytes(reply->end() - 4, reply->end()), (Bytes{0xFE, 1, 2, 0}));
}

TEST_F(UsbIpConnectionTest, DfuRequestsAreAnsweredAndRecorded) {
    BeginInDfuMode();
    EXPECT_EQ(Control(kGetState), (Reply{kSubmitReply, 0, 0, 1, {2}}));
    EXPECT_EQ(events_.back().at("setup"), "a1 05 00 00 00 00 01 00");
}

TEST_F(UsbIpConnectionTest, AStallIsABrokenPipe) {
    BeginInDfuMode(
        {.faults = {{.where = Fault::Where::GetState, .what = Fault::What::Stall, .setsError = false}}});
    EXPECT_EQ(Control(kGetState), (Reply{kSubmitReply, 0, kBrokenPipe, 0, {}}));
    EXPECT_EQ(Control(kGetState), (Reply{kSubmitReply, 0, 0, 1, {2}}));
}

TEST_F(UsbIpConnectionTest, ATimeOutHoldsTheTransferUntilItIsUnlinked) {
    BeginInDfuMode({.faults = {{.where = Fault::Where::GetState, .what = Fault::What::Timeout}}});
    EXPECT_EQ(Control(kGetState), std::nullopt);
    Pass(100'000);
    EXPECT_EQ(Answer(true), std::nullopt);
    client_->Unlink(500, sequence_);
    EXPECT_EQ(Answer(false), (Reply{kUnlinkReply, 500, kConnectionReset, 0, {}}));
    EXPECT_EQ(Control(kGetState), (Reply{kSubmitReply, 0, 0, 1, {2}}));
}

TEST_F(UsbIpConnectionTest, WhatIsAnsweredIsNotUnlinked) {
    BeginInDfuMode();
    Control(kGetState);
    client_->Unlink(500, sequence_);
    EXPECT_EQ(Answer(false), (Reply{kUnlinkReply, 500, 0, 0, {}}));
}

TEST_F(UsbIpConnectionTest, LateAnswersComeLate) {
    BeginInDfuMode({.personality = Personality::AddressedFlash, .blockMs = 400});
    Control({0x21, 1, 0, 0, 0, 0, 64, 0}, MakeImage(64));
    Control({0xA1, 3, 0, 0, 0, 0, 6, 0});
    EXPECT_EQ(Control(kGetState), std::nullopt);
    Pass(399);
    EXPECT_EQ(Answer(true), std::nullopt);
    Pass(1);
    const auto reply = Answer(true);
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->status, 0);
    EXPECT_EQ(reply->transferred, 1U);
}

TEST_F(UsbIpConnectionTest, WhatMeetsACameraThatLeavesIsShutDown) {
    BeginInDfuMode({.faults = {{.where = Fault::Where::GetState, .what = Fault::What::Unplug}}});
    EXPECT_EQ(Control(kGetState), (Reply{kSubmitReply, 0, kShutDown, 0, {}}));
    Rounds();
    EXPECT_FALSE(isOpen_);
}

TEST_F(UsbIpConnectionTest, TheVideoEndpointStaysSilentUntilItIsUnlinked) {
    BeginImported();
    Control({0x01, 11, 1, 0, 1, 0, 0, 0});
    client_->Submit(70, 1, true, 1024, Bytes(8), Bytes(2 * 16), 2);
    EXPECT_EQ(Answer(true), std::nullopt);
    client_->Unlink(71, 70);
    EXPECT_EQ(Answer(false), (Reply{kUnlinkReply, 71, kConnectionReset, 0, {}}));
}

TEST_F(UsbIpConnectionTest, OtherEndpointsStall) {
    BeginImported();
    client_->Submit(70, 1, true, 1024, Bytes(8));  // of the setting that is not chosen
    EXPECT_EQ(Answer(true), (Reply{kSubmitReply, 70, kBrokenPipe, 0, {}}));
    client_->Submit(71, 2, false, 4, Bytes(8), Bytes(4));
    EXPECT_EQ(Answer(false), (Reply{kSubmitReply, 71, kBrokenPipe, 0, {}}));
}

TEST_F(UsbIpConnectionTest, PacketsMayComeInPieces) {
    BeginImported();
    Bytes packet{0, 0, 0, 1,  0, 0, 0, 90, 0,    1,    0,    1,    0, 0, 0, 1, 0,    0, 0, 0, 0, 0, 0,  0,
                 0, 0, 0, 18, 0, 0, 0, 0,  0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0x80, 6, 0, 1, 0, 0, 18, 0};
    for (const std::uint8_t byte : packet) {
        client_->Send({byte});
        client_->Exchange();
        loop_.RunOnce(0);
    }
    const auto reply = Answer(true);
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->sequence, 90U);
    EXPECT_EQ(reply->data.size(), 18U);
}

TEST_F(UsbIpConnectionTest, HangsUpOnWhatIsNoHost) {
    Begin();
    client_ = Connect();
    client_->Send(Bytes(64, 0x47));
    Rounds();
    Rounds();
    EXPECT_FALSE(isOpen_);
    EXPECT_EQ(loop_.Members(), 1U);
}

TEST_F(UsbIpConnectionTest, HangsUpOnATransferThatNoDeviceHas) {
    BeginImported();
    client_->Submit(70, 2, false, 0x7FFFFFFF, Bytes(8));
    Rounds();
    Rounds();
    EXPECT_FALSE(isOpen_);
    EXPECT_TRUE(imported_.empty());
}

}  // namespace
}  // namespace lab::test
