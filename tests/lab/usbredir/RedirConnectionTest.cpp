#include "lab/usbredir/RedirConnection.h"

#include "tests/lab/camera/CameraDriver.h"
#include "tests/lab/usbredir/RedirGuest.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

// A served camera as a host's controller meets it, which is played by the protocol's own parser.

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Words = std::vector<std::string>;
using nlohmann::json;

constexpr std::uint16_t kExtensionUnit = 0x0300;

class RedirConnectionTest : public testing::Test {
  protected:
    void Begin(CameraSettings settings = {}) {
        camera_ = std::make_unique<ServedCamera>(0, std::move(settings),
                                                 [this](const json& event) { events_.push_back(event); });
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        guest_ = std::make_unique<RedirGuest>(Socket(ends[0]));
        loop_.Add(std::make_unique<RedirConnection>(Socket(ends[1]), *camera_, [this] { ++closed_; }));
        Exchange();
    }

    // Plugged in and configured, as a host's stack leaves it.
    void BeginConfigured(CameraSettings settings = {}) {
        Begin(std::move(settings));
        camera_->Plug(nowMs_);
        Exchange();
        Configure();
    }

    void BeginInDfuMode(CameraSettings settings = {}) {
        BeginConfigured(std::move(settings));
        guest_->Send(1, 0x21, 0x01, 0x0100, kExtensionUnit, 1024, MakeFrame(0x1E, {1, 0, 0, 0}));
        Exchange();
        Pass(50);
        Pass(200);
        ASSERT_EQ(camera_->Device().Camera().Mode(), BusMode::Dfu);
        Configure();
        guest_->controls.clear();
    }

    void Configure() {
        usb_redir_set_configuration_header header{};
        header.configuration = 1;
        usbredirparser_send_set_configuration(guest_->Parser(), 7, &header);
        Exchange();
    }

    void Exchange() {
        for (int round = 0; round < 4; ++round) {
            guest_->Exchange();
            loop_.RunOnce(0);
        }
        guest_->Exchange();
    }

    void Pass(std::uint64_t ms) {
        nowMs_ += ms;
        camera_->Advance(nowMs_);
        Exchange();
    }

    Bytes Get(std::uint8_t requestType, std::uint8_t request, std::uint16_t value, std::uint16_t index,
              std::uint16_t length) {
        guest_->controls.clear();
        guest_->Send(++id_, requestType, request, value, index, length);
        Exchange();
        return guest_->controls.size() == 1 ? guest_->controls[0].data : Bytes{};
    }

    std::vector<json> Named(const std::string& name) const {
        std::vector<json> named;
        std::copy_if(events_.begin(), events_.end(), std::back_inserter(named),
                     [&name](const json& event) { return event.at("event") == name; });
        return named;
    }

    Words Changes() const {
        Words changes;
        for (const json& event : Named("camera")) {
            changes.push_back(event.at("change"));
        }
        return changes;
    }

    std::uint64_t nowMs_ = 1000;
    std::uint64_t id_ = 100;
    int closed_ = 0;
    std::vector<json> events_;
    std::unique_ptr<ServedCamera> camera_;
    ServerLoop loop_{[this] { return nowMs_; }};
    std::unique_ptr<RedirGuest> guest_;
};

TEST_F(RedirConnectionTest, TellsOfACameraWhenItIsPluggedIn) {
    Begin();
    EXPECT_EQ(guest_->told, Words{"hello"});
    camera_->Plug(nowMs_);
    Exchange();
    EXPECT_EQ(guest_->told, (Words{"hello", "interfaces", "endpoints", "connect"}));
    ASSERT_TRUE(guest_->device.has_value());
    EXPECT_EQ(guest_->device->speed, usb_redir_speed_high);
    EXPECT_EQ(guest_->device->vendor_id, 0x2F1A);
    EXPECT_EQ(guest_->device->product_id, 0x7E00);
    EXPECT_EQ(guest_->device->device_class, 0xEF);
    EXPECT_EQ(guest_->device->device_version_bcd, 0x0100);
    ASSERT_EQ(guest_->interfaces.interface_count, 2U);
    EXPECT_EQ(guest_->interfaces.interface_class[1], 0x0E);
    EXPECT_EQ(guest_->interfaces.interface_subclass[1], 2);
    EXPECT_EQ(guest_->endpoints.type[0], usb_redir_type_control);
    EXPECT_EQ(guest_->endpoints.type[16], usb_redir_type_control);
    EXPECT_EQ(guest_->endpoints.type[17], usb_redir_type_invalid);
}

TEST_F(RedirConnectionTest, ACameraThatIsThereAlreadyIsToldAtOnce) {
    Begin();
    camera_->Plug(nowMs_);
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    RedirGuest second{Socket(ends[0])};
    loop_.Add(std::make_unique<RedirConnection>(Socket(ends[1]), *camera_, [] {}));
    for (int round = 0; round < 4; ++round) {
        second.Exchange();
        loop_.RunOnce(0);
    }
    second.Exchange();
    EXPECT_TRUE(second.device.has_value());
}

TEST_F(RedirConnectionTest, AnswersDescriptorsBeforeTheConfiguration) {
    Begin();
    camera_->Plug(nowMs_);
    Exchange();
    EXPECT_EQ(Get(0x80, 6, 0x0100, 0, 64).size(), 18U);
    EXPECT_EQ(guest_->controls[0].header.status, usb_redir_success);
    EXPECT_EQ(guest_->controls[0].header.length, 18);
    EXPECT_EQ(guest_->controls[0].id, id_);
    EXPECT_EQ(camera_->Device().State(), UsbState::Default);
}

TEST_F(RedirConnectionTest, ASerialNumberOfItsOwnIsTold) {
    Begin();
    camera_->Plug(nowMs_);
    Exchange();
    const Bytes text = Get(0x80, 6, 0x0303, 0x0409, 255);
    EXPECT_EQ(text.size(), 2U + 2 * 9);
    EXPECT_EQ(text[18], '1');
}

TEST_F(RedirConnectionTest, ChoosesTheConfiguration) {
    BeginConfigured();
    ASSERT_TRUE(guest_->configuration.has_value());
    EXPECT_EQ(guest_->configuration->status, usb_redir_success);
    EXPECT_EQ(guest_->configuration->configuration, 1);
    EXPECT_EQ(camera_->Device().State(), UsbState::Configured);

    usb_redir_set_configuration_header header{};
    header.configuration = 9;
    usbredirparser_send_set_configuration(guest_->Parser(), 8, &header);
    Exchange();
    EXPECT_EQ(guest_->configuration->status, usb_redir_stall);
    usbredirparser_send_get_configuration(guest_->Parser(), 9);
    Exchange();
    EXPECT_EQ(guest_->configuration->status, usb_redir_success);
    EXPECT_EQ(guest_->configuration->configuration, 1);
}

TEST_F(RedirConnectionTest, TheVideoStreamBeginsAndStaysSilent) {
    BeginConfigured();
    usb_redir_set_alt_setting_header setting{};
    setting.interface = 1;
    setting.alt = 1;
    usbredirparser_send_set_alt_setting(guest_->Parser(), 8, &setting);
    Exchange();
    ASSERT_TRUE(guest_->alternate.has_value());
    EXPECT_EQ(guest_->alternate->status, usb_redir_success);
    EXPECT_EQ(guest_->alternate->alt, 1);
    EXPECT_EQ(guest_->endpoints.type[17], usb_redir_type_iso);
    EXPECT_EQ(guest_->endpoints.max_packet_size[17], 1024);
    EXPECT_EQ(guest_->endpoints.interface[17], 1);

    usb_redir_start_iso_stream_header start{};
    start.endpoint = 0x81;
    usbredirparser_send_start_iso_stream(guest_->Parser(), 9, &start);
    Exchange();
    ASSERT_TRUE(guest_->isoStream.has_value());
    EXPECT_EQ(guest_->isoStream->status, usb_redir_success);
    start.endpoint = 0x82;
    usbredirparser_send_start_iso_stream(guest_->Parser(), 10, &start);
    Exchange();
    EXPECT_EQ(guest_->isoStream->status, usb_redir_stall);
}

TEST_F(RedirConnectionTest, ASettingThatDoesNotExistStalls) {
    BeginConfigured();
    usb_redir_set_alt_setting_header setting{};
    setting.interface = 1;
    setting.alt = 2;
    usbredirparser_send_set_alt_setting(guest_->Parser(), 8, &setting);
    Exchange();
    EXPECT_EQ(guest_->alternate->status, usb_redir_stall);
    EXPECT_EQ(guest_->alternate->alt, 0);
}

TEST_F(RedirConnectionTest, EndpointsThatDoNotExistStall) {
    BeginConfigured();
    usb_redir_start_interrupt_receiving_header interrupt{};
    interrupt.endpoint = 0x83;
    usbredirparser_send_start_interrupt_receiving(guest_->Parser(), 8, &interrupt);
    usb_redir_bulk_packet_header bulk{};
    bulk.endpoint = 0x82;
    bulk.length = 64;
    usbredirparser_send_bulk_packet(guest_->Parser(), 9, &bulk, nullptr, 0);
    Exchange();
    ASSERT_TRUE(guest_->interruptReceiving.has_value());
    EXPECT_EQ(guest_->interruptReceiving->status, usb_redir_stall);
    ASSERT_TRUE(guest_->bulk.has_value());
    EXPECT_EQ(guest_->bulk->status, usb_redir_stall);
    EXPECT_EQ(guest_->bulk->length, 0);
}

TEST_F(RedirConnectionTest, CommandsReachTheFirmwareAndAreRecorded) {
    BeginConfigured();
    guest_->Send(1, 0x21, 0x01, 0x0100, kExtensionUnit, 1024, MakeFrame(0x10));
    Exchange();
    ASSERT_EQ(guest_->controls.size(), 1U);
    EXPECT_EQ(guest_->controls[0].header.status, usb_redir_success);
    EXPECT_EQ(guest_->controls[0].header.length, 1024);
    EXPECT_TRUE(guest_->controls[0].data.empty());
    const Bytes reply = Get(0xA1, 0x81, 0x0100, kExtensionUnit, 1024);
    ASSERT_EQ(reply.size(), 1024U);
    EXPECT_EQ(reply[0], 0x10);
    ASSERT_EQ(Named("firmware-command").size(), 1U);
    EXPECT_EQ(Named("firmware-command")[0].at("opcode"), 0x10);
    ASSERT_EQ(Named("firmware-reply").size(), 1U);
    EXPECT_EQ(Named("firmware-reply")[0].at("bytes"), 1024);
}

TEST_F(RedirConnectionTest, TheSwitchToDfuModeIsAnotherDevice) {
    BeginInDfuMode();
    EXPECT_EQ(guest_->told,
              (Words{"hello", "interfaces", "endpoints", "connect", "interfaces", "endpoints", "disconnect",
                     "interfaces", "endpoints", "connect", "interfaces", "endpoints"}));
    EXPECT_EQ(guest_->device->product_id, 0x7E01);
    EXPECT_EQ(Changes(), (Words{"plugged", "left", "dfu"}));
    EXPECT_EQ(Get(0xA1, 5, 0, 0, 1), Bytes{2});
    ASSERT_EQ(Named("transfer").size(), 1U);
    EXPECT_EQ(Named("transfer")[0].at("setup"), "a1 05 00 00 00 00 01 00");
    EXPECT_EQ(Named("transfer")[0].at("data"), "02");
}

TEST_F(RedirConnectionTest, StallsAreToldAsStalls) {
    BeginInDfuMode(
        {.faults = {{.where = Fault::Where::GetState, .what = Fault::What::Stall, .setsError = false}}});
    Get(0xA1, 5, 0, 0, 1);
    ASSERT_EQ(guest_->controls.size(), 1U);
    EXPECT_EQ(guest_->controls[0].header.status, usb_redir_stall);
    EXPECT_EQ(guest_->controls[0].header.length, 0);
    EXPECT_EQ(Get(0xA1, 5, 0, 0, 1), Bytes{2});
}

TEST_F(RedirConnectionTest, ATimeOutHoldsThePacketUntilItIsCancelled) {
    BeginInDfuMode({.faults = {{.where = Fault::Where::GetState, .what = Fault::What::Timeout}}});
    Get(0xA1, 5, 0, 0, 1);
    EXPECT_TRUE(guest_->controls.empty());
    Pass(100'000);
    EXPECT_TRUE(guest_->controls.empty());
    usbredirparser_send_cancel_data_packet(guest_->Parser(), id_);
    Exchange();
    ASSERT_EQ(guest_->controls.size(), 1U);
    EXPECT_EQ(guest_->controls[0].id, id_);
    EXPECT_EQ(guest_->controls[0].header.status, usb_redir_cancelled);
    EXPECT_EQ(Get(0xA1, 5, 0, 0, 1), Bytes{2});
}

TEST_F(RedirConnectionTest, WhatIsAnsweredIsNotCancelled) {
    BeginInDfuMode();
    Get(0xA1, 5, 0, 0, 1);
    usbredirparser_send_cancel_data_packet(guest_->Parser(), id_);
    Exchange();
    EXPECT_EQ(guest_->controls.size(), 1U);
}

TEST_F(RedirConnectionTest, LateAnswersComeLate) {
    BeginInDfuMode({.personality = Personality::AddressedFlash, .blockMs = 400});
    guest_->Send(1, 0x21, 1, 0, 0, 64, MakeImage(64));
    Exchange();
    Get(0xA1, 3, 0, 0, 6);
    Get(0xA1, 5, 0, 0, 1);
    EXPECT_TRUE(guest_->controls.empty());
    Pass(399);
    EXPECT_TRUE(guest_->controls.empty());
    Pass(1);
    ASSERT_EQ(guest_->controls.size(), 1U);
    EXPECT_EQ(guest_->controls[0].header.status, usb_redir_success);
}

TEST_F(RedirConnectionTest, AnUnpluggedCameraIsDisconnected) {
    BeginInDfuMode({.faults = {{.where = Fault::Where::GetState, .what = Fault::What::Unplug}}});
    Get(0xA1, 5, 0, 0, 1);
    EXPECT_TRUE(guest_->controls.empty());
    EXPECT_FALSE(guest_->device.has_value());
    EXPECT_EQ(guest_->told.back(), "disconnect");
    EXPECT_EQ(Changes().back(), "unplugged");
    camera_->Plug(nowMs_);
    Exchange();
    EXPECT_TRUE(guest_->device.has_value());
}

TEST_F(RedirConnectionTest, AResetAfterTheConfigurationChangesTheDeviceInPlace) {
    BeginInDfuMode();
    guest_->told.clear();
    usbredirparser_send_reset(guest_->Parser());
    Exchange();
    EXPECT_EQ(guest_->told, (Words{"interfaces", "endpoints"}));
    EXPECT_EQ(Get(0x80, 6, 0x0100, 0, 18)[10], 0x00);
    EXPECT_EQ(Named("reset").size(), 1U);
    EXPECT_EQ(Changes(), (Words{"plugged", "left", "dfu", "left", "running"}));
}

TEST_F(RedirConnectionTest, ResetsBeforeTheConfigurationChangeNothing) {
    BeginConfigured();
    usbredirparser_send_reset(guest_->Parser());
    Exchange();
    const auto stay = camera_->Stay();
    for (int reset = 0; reset < 3; ++reset) {
        usbredirparser_send_reset(guest_->Parser());
        Exchange();
    }
    EXPECT_EQ(Named("reset").size(), 1U);
    EXPECT_EQ(camera_->Stay(), stay);
    EXPECT_EQ(Changes(), Words{"plugged"});
}

TEST_F(RedirConnectionTest, EndsWithItsHost) {
    BeginConfigured();
    guest_.reset();
    loop_.RunOnce(0);
    EXPECT_EQ(closed_, 1);
    EXPECT_EQ(loop_.Members(), 0U);
}

TEST_F(RedirConnectionTest, EndsWithAHostThatSpeaksSomethingElse) {
    Begin();
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    const Socket stranger(ends[0]);
    loop_.Add(std::make_unique<RedirConnection>(Socket(ends[1]), *camera_, [this] { ++closed_; }));
    ASSERT_TRUE(stranger.Send(Bytes(4096, 0xA5)).has_value());
    loop_.RunOnce(0);
    EXPECT_EQ(closed_, 1);
}

}  // namespace
}  // namespace lab::test
