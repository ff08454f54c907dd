#include "lab/guest/UsbCommands.h"

#include <gtest/gtest.h>

#include <string>

#include <nlohmann/json.hpp>

#include "tests/lab/guest/TemporaryPlaces.h"

using lab::guest::CommandTable;
using lab::guest::UsbCommands;
using nlohmann::json;

namespace {

// The device's node is a plain file here: what gets as far as the kernel is answered with ENOTTY.
class UsbCommandsTest : public testing::Test {
  protected:
    UsbCommandsTest() {
        places_.AddDevice("1-1");
        usb_.AddTo(table_);
    }

    json Ask(json command) const { return table_.Answer(command.dump()).value_or(json("later")); }
    // Why the command is refused, or the kernel's error.
    std::string OutcomeOf(json command) const {
        const json answer = Ask(std::move(command));
        return answer.value(answer.contains("errno") ? "errno" : "why", "done");
    }
    static json Control(const std::string& setup) {
        return {{"command", "control"}, {"device", "1-1"}, {"setup", setup}};
    }

    TemporaryPlaces places_;
    UsbCommands usb_{places_.Places()};
    CommandTable table_;
};

}  // namespace

TEST_F(UsbCommandsTest, TellsTheDevices) {
    const json answer = Ask({{"command", "devices"}});
    EXPECT_EQ(answer.at("ok"), true);
    ASSERT_EQ(answer.at("devices").size(), 1U);
    const json& device = answer.at("devices")[0];
    EXPECT_EQ(device.at("path"), "1-1");
    EXPECT_EQ(device.at("vendor"), "2f1a");
    EXPECT_EQ(device.at("product_text"), "Camera");
    EXPECT_EQ(device.at("interfaces")[0].at("class"), "ff");
}

TEST_F(UsbCommandsTest, TellsDescriptors) {
    EXPECT_EQ(Ask({{"command", "descriptors"}, {"device", "1-1"}}).at("data"), "12010002");
    EXPECT_EQ(OutcomeOf({{"command", "descriptors"}, {"device", "1-2"}}), "ENODEV");
    EXPECT_EQ(OutcomeOf({{"command", "descriptors"}, {"device", "../1-1"}}), "EINVAL");
}

TEST_F(UsbCommandsTest, HandsAControlTransferToTheKernel) {
    EXPECT_EQ(OutcomeOf(Control("80 06 00 01 00 00 12 00")), "ENOTTY");
    json command = Control("2101000000000200");
    command["data"] = "abcd";
    EXPECT_EQ(OutcomeOf(command), "ENOTTY");
    EXPECT_EQ(OutcomeOf(Control("2100e80300000000")), "ENOTTY");
}

TEST_F(UsbCommandsTest, RefusesAControlTransferThatMakesNoSense) {
    EXPECT_EQ(OutcomeOf({{"command", "control"}, {"device", "1-1"}}), "setup is missing");
    EXPECT_EQ(OutcomeOf(Control("80060001000012")), "setup has not 8 bytes");
    EXPECT_EQ(OutcomeOf(Control("800600010000120000")), "setup has more than 8 bytes");
    EXPECT_EQ(OutcomeOf(Control("8006000100000110")), "wLength is more than 4096");
    EXPECT_EQ(OutcomeOf(Control("2101000000000200")), "data is missing");
    json command = Control("2101000000000200");
    command["data"] = "ab";
    EXPECT_EQ(OutcomeOf(command), "data is not as long as wLength says");
    command = Control("8006000100001200");
    command["limit_ms"] = 0;
    EXPECT_EQ(OutcomeOf(command), "limit_ms is not from 1 to 600000");
}

TEST_F(UsbCommandsTest, HandsTheOtherRequestsToTheKernel) {
    for (const json& command :
         {json{{"command", "claim"}, {"interface", 0}}, json{{"command", "release"}, {"interface", 0}},
          json{{"command", "set-interface"}, {"interface", 0}, {"setting", 1}}, json{{"command", "reset"}}}) {
        json whole = command;
        whole["device"] = "1-1";
        EXPECT_EQ(OutcomeOf(whole), "ENOTTY") << whole;
        whole["device"] = "1-2";
        EXPECT_EQ(OutcomeOf(whole), "ENODEV") << whole;
    }
    EXPECT_EQ(OutcomeOf({{"command", "claim"}, {"device", "1-1"}}), "interface is missing");
    EXPECT_EQ(OutcomeOf({{"command", "claim"}, {"device", "1-1"}, {"interface", 256}}),
              "interface is not from 0 to 255");
}

TEST_F(UsbCommandsTest, KeepsADeviceOpenUntilItHasLeft) {
    const json reset{{"command", "reset"}, {"device", "1-1"}};
    EXPECT_EQ(OutcomeOf(reset), "ENOTTY");
    places_.Remove("dev/bus/usb/001/002");
    EXPECT_EQ(OutcomeOf(reset), "ENOTTY");
    usb_.Forget("1-1");
    EXPECT_EQ(OutcomeOf(reset), "ENOENT");
    places_.AddDevice("1-1", 3);
    EXPECT_EQ(OutcomeOf(reset), "ENOTTY");
}

TEST_F(UsbCommandsTest, AsksTheUvcDriverForAnExtensionUnit) {
    json command{{"command", "extension-unit"}, {"device", "1-1"}, {"unit", 3}, {"selector", 1},
                 {"query", "GET_LEN"},          {"length", 2}};
    EXPECT_EQ(OutcomeOf(command), "ENOTTY");
    places_.Link("sys/class/video4linux/video0/device", "../../../1-1:1.0");
    places_.Write("sys/class/video4linux/video0/index", "0\n");
    EXPECT_EQ(OutcomeOf(command), "ENOENT");
    places_.Write("dev/video0", "");
    EXPECT_EQ(OutcomeOf(command), "ENOTTY");
    command["query"] = "SET_CUR";
    EXPECT_EQ(OutcomeOf(command), "data is missing");
    command["data"] = "00";
    EXPECT_EQ(OutcomeOf(command), "ENOTTY");
}

TEST_F(UsbCommandsTest, RefusesAnExtensionUnitCommandThatMakesNoSense) {
    const json good{{"command", "extension-unit"}, {"device", "1-1"}, {"unit", 3}, {"selector", 1},
                    {"query", "GET_CUR"},          {"length", 2}};
    const auto with = [&good](const char* field, const json& value) {
        json command = good;
        command[field] = value;
        return command;
    };
    EXPECT_EQ(OutcomeOf(with("query", "GET_ALL")), "query is none of the UVC 1.1 standard's");
    EXPECT_EQ(OutcomeOf(with("length", 0)), "length is not from 1 to 65535");
    EXPECT_EQ(OutcomeOf(with("length", 65536)), "length is not from 1 to 65535");
    EXPECT_EQ(OutcomeOf(with("unit", 256)), "unit is not from 0 to 255");
    EXPECT_EQ(OutcomeOf(with("selector", "1")), "selector is no whole number from 0");
}
