#include "lab/vocabulary/BusEvents.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include <nlohmann/json.hpp>

// The wire's words are a contract with the programs that read a transcript.

namespace lab::test {
namespace {

using nlohmann::json;

TEST(BusEvents, AnswersTellWhatCame) {
    const std::array<std::uint8_t, 6> status{0, 1, 2, 3, 4, 5};
    const SetupPacket setup{.requestType = 0xA1, .request = 3, .value = 0x1234, .index = 1, .length = 6};
    EXPECT_EQ(TransferEvent(setup, status, 3, 0, 0),
              json::parse(R"({"event":"transfer","setup":"a1 03 34 12 01 00 06 00","length":6,"transferred":3,
                              "ok":true,"error":0,"data":"000102"})"));
}

TEST(BusEvents, WhatIsSentIsToldWhole) {
    const std::array<std::uint8_t, 4> block{0xDE, 0xAD, 0, 1};
    EXPECT_EQ(TransferEvent({.requestType = 0x21, .request = 1, .length = 3}, block, 1, 121, 5000),
              json::parse(R"({"event":"transfer","setup":"21 01 00 00 00 00 03 00","length":4,"transferred":1,
                              "ok":false,"error":121,"ms":5000,"sent":"dead00"})"));
    EXPECT_EQ(TransferEvent({.requestType = 0x21, .request = 1}, {}, 0, 0, 0),
              json::parse(R"({"event":"transfer","setup":"21 01 00 00 00 00 00 00","length":0,"transferred":0,
                              "ok":true,"error":0})"));
}

TEST(BusEvents, CommandsAreTakenApart) {
    const std::vector<std::uint8_t> frame{20, 0, 0xAB, 0xCD, 0x1E, 0, 0, 0, 1, 0, 0, 0, 2};
    EXPECT_EQ(CommandEvent(frame, 0),
              json::parse(R"({"event":"firmware-command","length":20,"magic":52651,"opcode":30,
                              "parameters":[1,2,0,0],"result":0})"));
    EXPECT_EQ(ReplyEvent(std::vector<std::uint8_t>{0x10, 0, 0, 0, 9}, 0),
              json::parse(R"({"event":"firmware-reply","opcode":16,"bytes":5,"result":0})"));
}

TEST(BusEvents, EndsAreWindowsNumbers) {
    EXPECT_EQ(WinUsbError(TransferEnd::Ok), 0U);
    EXPECT_EQ(WinUsbError(TransferEnd::Stall), 31U);
    EXPECT_EQ(WinUsbError(TransferEnd::Disconnected), 31U);
    EXPECT_EQ(WinUsbError(TransferEnd::Timeout), 121U);
    EXPECT_EQ(PropertyResult(TransferEnd::Ok), 0);
    EXPECT_EQ(PropertyResult(TransferEnd::Stall), -2147024865);         // 0x8007001F
    EXPECT_EQ(PropertyResult(TransferEnd::Timeout), -2147024775);       // 0x80070079
    EXPECT_EQ(PropertyResult(TransferEnd::Disconnected), -2147023729);  // 0x8007048F
}

TEST(BusEvents, TheOthers) {
    EXPECT_EQ(CameraEvent(2, "left", "5.10.2.0"),
              json::parse(R"({"event":"camera","camera":2,"change":"left","version":"5.10.2.0"})"));
    EXPECT_EQ(DescriptorEvent(2, 0, std::vector<std::uint8_t>{9, 2, 27, 0}, 3, 0),
              json::parse(R"({"event":"descriptor","type":2,"index":0,"length":4,"transferred":3,"ok":true,
                              "error":0,"data":"09021b"})"));
    EXPECT_EQ(
        AlternateSettingEvent(1, 0, 31),
        json::parse(R"({"event":"alternate-setting","interface":1,"setting":0,"ok":false,"error":31})"));
}

TEST(BusEvents, AnAbsentCamerasState) {
    EXPECT_EQ(CameraState(VirtualCamera({}), BusMode::Absent),
              json::parse(R"({"mode":"absent","on_its_way":false,"pending":false,"dfu_state":0,"dfu_status":0,
                              "version":"5.10.2.0","flash_bytes":4096,
                              "after_power_failure":{"valid":true,"bytes":4096,"checksum":2978712366},
                              "block_number_gaps":0,"transfers":0})"));
}

}  // namespace
}  // namespace lab::test
