#include "lab/served/ServedCameras.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using nlohmann::json;

class ServedCamerasTest : public testing::Test {
  protected:
    static ServedCameras::Recorder Into(std::vector<json>& events) {
        return [&events](const json& event) { events.push_back(event); };
    }

    json Do(const json& command) { return cameras_.CarryOut(command, nowMs_); }
    TransferResult Transfer(const SetupPacket& setup, Bytes data = {}) {
        data.resize(setup.length);
        return cameras_.At(0).Transfer(setup, data, nowMs_);
    }

    std::uint64_t nowMs_ = 1000;
    std::vector<json> events_;
    ServedCameras cameras_{{{.version = {1, 2, 3, 4}}, {}}, Into(events_)};
};

TEST_F(ServedCamerasTest, AreUnpluggedAtFirst) {
    EXPECT_EQ(Do({{"command", "state"}, {"camera", 1}}).at("mode"), "absent");
    EXPECT_EQ(cameras_.At(0).Stay(), 0U);
    EXPECT_TRUE(events_.empty());
}

TEST_F(ServedCamerasTest, ArePluggedAndUnplugged) {
    EXPECT_EQ(Do({{"command", "plug"}, {"camera", 0}}),
              json::parse(R"({"event":"done","command":"plug","ok":true})"));
    EXPECT_EQ(cameras_.At(0).Stay(), 1U);
    EXPECT_THROW(Do({{"command", "plug"}, {"camera", 0}}), std::runtime_error);
    Do({{"command", "unplug"}, {"camera", 0}});
    EXPECT_EQ(cameras_.At(0).Stay(), 0U);
    EXPECT_THROW(Do({{"command", "unplug"}, {"camera", 0}}), std::runtime_error);
    EXPECT_EQ(events_,
              (std::vector<json>{
                  json::parse(R"({"event":"camera","camera":0,"change":"plugged","version":"1.2.3.4"})"),
                  json::parse(R"({"event":"camera","camera":0,"change":"unplugged","version":"1.2.3.4"})")}));
    Do({{"command", "plug"}, {"camera", 0}});
    EXPECT_EQ(cameras_.At(0).Stay(), 2U);
}

TEST_F(ServedCamerasTest, TellTheirState) {
    Do({{"command", "plug"}, {"camera", 0}});
    const json state = Do({{"command", "state"}, {"camera", 0}});
    EXPECT_EQ(state.at("mode"), "running");
    EXPECT_EQ(state.at("version"), "1.2.3.4");
    EXPECT_EQ(state.at("ok"), true);
}

TEST_F(ServedCamerasTest, SaveTheirFlash) {
    const std::string path = (std::filesystem::temp_directory_path() / "veyra-served-flash.bin").string();
    EXPECT_EQ(Do({{"command", "save-flash"}, {"camera", 0}, {"path", path}}).at("bytes"), 4096);
    {
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> saved{std::istreambuf_iterator<char>(file), {}};
        EXPECT_EQ(Bytes(saved.begin(), saved.end()), cameras_.At(0).Device().Camera().Flash());
    }
    std::filesystem::remove(path);
    EXPECT_THROW(Do({{"command", "save-flash"}, {"camera", 0}, {"path", "/no/such/folder/flash"}}),
                 std::runtime_error);
}

TEST_F(ServedCamerasTest, RefuseWhatTheyDoNotKnow) {
    EXPECT_THROW(Do({{"command", "plug"}, {"camera", 2}}), std::runtime_error);
    EXPECT_THROW(Do({{"command", "plug"}, {"camera", -1}}), std::runtime_error);
    EXPECT_THROW(Do({{"command", "plug"}}), std::exception);
    EXPECT_THROW(Do({{"command", "deliver"}, {"camera", 0}}), std::runtime_error);
    EXPECT_THROW(Do(json::object()), std::exception);
}

TEST_F(ServedCamerasTest, HaveSerialNumbersOfTheirOwn) {
    EXPECT_EQ(cameras_.At(0).Device().Camera().Settings().serialNumber, "KV4000001");
    EXPECT_EQ(cameras_.At(1).Device().Camera().Settings().serialNumber, "KV4000002");
}

TEST_F(ServedCamerasTest, AnAddressIsGivenWithTheFirstRequestThatNeedsOne) {
    Do({{"command", "plug"}, {"camera", 0}});
    EXPECT_EQ(Transfer({.requestType = 0x80, .request = 6, .value = 0x0100, .length = 18}).end,
              TransferEnd::Ok);
    EXPECT_EQ(cameras_.At(0).Device().State(), UsbState::Default);
    EXPECT_EQ(Transfer({.request = 9, .value = 1}).end, TransferEnd::Ok);
    EXPECT_EQ(cameras_.At(0).Device().State(), UsbState::Configured);
}

TEST_F(ServedCamerasTest, AResetInPlaceBeginsNoStay) {
    Do({{"command", "plug"}, {"camera", 0}});
    Transfer({.request = 9, .value = 1});
    cameras_.At(0).Reset(nowMs_);
    EXPECT_EQ(cameras_.At(0).Stay(), 1U);
    EXPECT_EQ(cameras_.At(0).Device().Camera().Arrivals(), 2U);
    EXPECT_EQ(events_.back(), json::parse(R"({"event":"reset","camera":0})"));
    cameras_.At(0).Reset(nowMs_);
    EXPECT_EQ(events_.size(), 3U);
}

TEST_F(ServedCamerasTest, TellThatAHostHasConfiguredThem) {
    Do({{"command", "plug"}, {"camera", 0}});
    Transfer({.requestType = 0x80, .request = 6, .value = 0x0100, .length = 18});
    EXPECT_EQ(events_.size(), 1U);
    Transfer({.request = 9, .value = 1});
    const json configured = json::parse(R"({"event":"configured","camera":0})");
    EXPECT_EQ(events_.back(), configured);
    Transfer({.request = 9, .value = 1});
    EXPECT_EQ(events_.size(), 2U);
    cameras_.At(0).Reset(nowMs_);
    Transfer({.request = 9, .value = 1});
    EXPECT_EQ(events_.size(), 4U);
    EXPECT_EQ(events_.back(), configured);
}

TEST_F(ServedCamerasTest, WhatADriverAsksIsRecordedAndWhatAStackAsksIsNot) {
    Do({{"command", "plug"}, {"camera", 0}});
    Transfer({.request = 9, .value = 1});
    Transfer({.requestType = 0xA1, .request = 0x85, .value = 0x0100, .index = 0x0300, .length = 2});
    events_.clear();
    Bytes frame(1024);
    const Bytes command{20, 0, 0xAB, 0xCD, 0x1E, 0, 0, 0, 1};
    std::copy(command.begin(), command.end(), frame.begin());
    Transfer({.requestType = 0x21, .request = 1, .value = 0x0100, .index = 0x0300, .length = 1024}, frame);
    ASSERT_EQ(events_.size(), 1U);
    EXPECT_EQ(events_[0].at("event"), "firmware-command");
    EXPECT_EQ(events_[0].at("opcode"), 0x1E);
    nowMs_ += 250;
    cameras_.Advance(nowMs_);
    events_.clear();

    const SetupPacket readDevice{.requestType = 0x80, .request = 6, .value = 0x0100, .length = 18};
    Transfer(readDevice);
    Transfer({.request = 9, .value = 1});
    EXPECT_EQ(events_, (std::vector<json>{json::parse(R"({"event":"configured","camera":0})")}));
    events_.clear();
    Transfer(readDevice);
    Transfer({.requestType = 0x01, .request = 11});
    Transfer({.requestType = 0xA1, .request = 5, .length = 1});
    ASSERT_EQ(events_.size(), 3U);
    EXPECT_EQ(events_[0].at("event"), "descriptor");
    EXPECT_EQ(events_[1].at("event"), "alternate-setting");
    EXPECT_EQ(events_[2].at("event"), "transfer");
}

TEST_F(ServedCamerasTest, LeaveAndComeBackInTheirTime) {
    Do({{"command", "plug"}, {"camera", 0}});
    EXPECT_EQ(cameras_.NextDeadline(), std::nullopt);
    Transfer({.request = 9, .value = 1});
    Bytes frame(1024);
    const Bytes command{20, 0, 0xAB, 0xCD, 0x1E, 0, 0, 0, 1};
    std::copy(command.begin(), command.end(), frame.begin());
    Transfer({.requestType = 0x21, .request = 1, .value = 0x0100, .index = 0x0300, .length = 1024}, frame);
    EXPECT_EQ(cameras_.NextDeadline(), 1050U);
    events_.clear();
    cameras_.Advance(1250);
    ASSERT_EQ(events_.size(), 2U);
    EXPECT_EQ(events_[0].at("change"), "left");
    EXPECT_EQ(events_[1].at("change"), "dfu");
    EXPECT_EQ(cameras_.At(0).Stay(), 2U);
}

TEST(Stage, TellsOfCamerasAlone) {
    const auto cameras = CamerasOfStage(json::parse(
        R"({"reply":"stage","cameras":[{"personality":"strict","faults":[{"where":"DNLOAD"}]},{"speed":"super"}]})"));
    ASSERT_EQ(cameras.size(), 2U);
    EXPECT_EQ(cameras[0].personality, Personality::Strict);
    EXPECT_EQ(cameras[0].faults.size(), 1U);
    EXPECT_EQ(cameras[1].speed, Speed::Super);
    EXPECT_THROW(static_cast<void>(CamerasOfStage(json::parse(R"({"trace":null})"))), std::runtime_error);
    EXPECT_THROW(static_cast<void>(CamerasOfStage(json::parse(R"({"cameras":[{"link_case":"lower"}]})"))),
                 std::runtime_error);
    EXPECT_THROW(static_cast<void>(CamerasOfStage(json::parse(R"({"cameras":[{"speed":"low"}]})"))),
                 std::runtime_error);
}

}  // namespace
}  // namespace lab::test
