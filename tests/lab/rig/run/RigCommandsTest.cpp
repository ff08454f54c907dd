#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <nlohmann/json.hpp>

#include "lab/rig/bus/InterfaceClasses.h"
#include "lab/rig/run/RigCommands.h"
#include "lab/wire/Utf8.h"
#include "tests/lab/rig/bus/BusFixture.h"

using namespace lab::rig;
using nlohmann::json;

namespace {

// An event of the USB device class, to be delivered or to burst.
json EventCommand(const char* name, unsigned type, const char* link) {
    return {{"command", name},
            {"type", type},
            {"class", "{A5DCBF10-6530-11D2-901F-00C04FB951ED}"},
            {"link", link}};
}

class RigCommandsTest : public BusFixture {
  protected:
    json Do(const json& command) { return CarryOut(*bus_, command.at("command"), command); }
};

}  // namespace

TEST_F(RigCommandsTest, PlugsTellsAndUnplugs) {
    Begin({QuickCamera()});
    EXPECT_EQ(Do({{"command", "plug"}, {"camera", 0}}),
              (json{{"event", "done"}, {"command", "plug"}, {"ok", true}}));
    const json state = Do({{"command", "state"}, {"camera", 0}});
    EXPECT_EQ(state.at("ok"), true);
    EXPECT_EQ(state.at("mode"), "running");
    EXPECT_EQ(Do({{"command", "unplug"}, {"camera", 0}}).at("ok"), true);
}

TEST_F(RigCommandsTest, SavesTheFlash) {
    Begin({QuickCamera()});
    const auto path = std::filesystem::temp_directory_path() / "veyra-rig-commands-flash.bin";
    const json answer = Do({{"command", "save-flash"}, {"camera", 0}, {"path", lab::Utf8(path.wstring())}});
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> saved{std::istreambuf_iterator<char>(file), {}};
    file.close();
    std::filesystem::remove(path);
    const auto flash = bus_->Flash(0);
    EXPECT_EQ(answer.at("bytes"), flash.size());
    EXPECT_TRUE(
        std::ranges::equal(saved, flash, {}, [](char byte) { return static_cast<std::uint8_t>(byte); }));
    EXPECT_THROW(Do({{"command", "save-flash"}, {"camera", 0}, {"path", "Q:\\nowhere\\flash.bin"}}),
                 std::runtime_error);
}

TEST_F(RigCommandsTest, GivesACameraOtherFaults) {
    Begin({QuickCamera()});
    const auto faults = [](const char* list) {
        return json{{"command", "faults"}, {"camera", 0}, {"faults", json::parse(list)}};
    };
    EXPECT_EQ(Do(faults(R"([{"where": "DNLOAD", "what": "stall", "skip": 1, "moment": "after"}])")).at("ok"),
              true);
    EXPECT_EQ(Do(faults("[]")).at("ok"), true);
    EXPECT_THROW(Do(faults(R"([{"where": "NOWHERE"}])")), std::runtime_error);
    EXPECT_THROW(Do(faults(R"([{"when": 1}])")), std::runtime_error);
    EXPECT_THROW(Do({{"command", "faults"}, {"camera", 1}, {"faults", json::array()}}), std::runtime_error);
}

TEST(RestOf, IsAtMostALeapYear) {
    EXPECT_EQ(RestOf({{"ms", 1'000}}), std::chrono::seconds(1));
    EXPECT_EQ(RestOf({{"ms", 31'622'400'000}}), std::chrono::days(366));
    EXPECT_THROW(static_cast<void>(RestOf({{"ms", 31'622'400'001}})), std::runtime_error);
    EXPECT_THROW(static_cast<void>(RestOf({{"ms", -1}})), std::runtime_error);
    EXPECT_THROW(static_cast<void>(RestOf({{"ms", "long"}})), std::runtime_error);
}

TEST_F(RigCommandsTest, LetsTimePass) {
    Begin({});
    const auto before = bus_->ClockMs();
    Do({{"command", "pass"}, {"ms", 60'000}});
    EXPECT_GE(bus_->ClockMs(), before + 60'000);
    EXPECT_THROW(Do({{"command", "pass"}, {"ms", -1}}), std::runtime_error);
    EXPECT_THROW(Do({{"command", "pass"}, {"ms", 600'001}}), std::runtime_error);
}

TEST_F(RigCommandsTest, DeliversAMadeUpEventToTheServiceOnly) {
    Begin({});
    Do(EventCommand("deliver", 0x8000, "any \xC3\xA9"));
    ASSERT_TRUE(Settle());
    const auto announced = TakeAnnounced();
    ASSERT_EQ(announced.size(), 1U);
    EXPECT_EQ(announced[0].type, 0x8000U);
    EXPECT_TRUE(announced[0].interfaceClass == kUsbDeviceClass);
    EXPECT_EQ(announced[0].link, L"any \u00E9");
    EXPECT_FALSE(announced[0].tellsWatchers);
}

TEST_F(RigCommandsTest, RefusesWhatItDoesNotUnderstand) {
    Begin({QuickCamera()});
    EXPECT_THROW(Do({{"command", "dance"}}), std::exception);
    EXPECT_THROW(Do({{"command", "plug"}}), std::exception);
    EXPECT_THROW(Do({{"command", "plug"}, {"camera", -1}}), std::exception);
    EXPECT_THROW(Do({{"command", "deliver"}, {"type", 1}, {"class", "none"}, {"link", ""}}), std::exception);
}

TEST_F(RigCommandsTest, DeliversAnEventManyTimes) {
    Begin({});
    json command = EventCommand("deliver", 1, "x");
    command["times"] = 200;
    Do(command);
    ASSERT_TRUE(Settle());
    EXPECT_EQ(TakeAnnounced().size(), 200U);
    command["times"] = -1;
    EXPECT_THROW(Do(command), std::runtime_error);
}

TEST_F(RigCommandsTest, PutsOtherCamerasInPlaceOfThoseThatAreGone) {
    Begin({QuickCamera()});
    const json stage{{"cameras", {{{"version", "1.2.3.4"}}, {{"version", "5.6.7.8"}}}}};
    Do({{"command", "plug"}, {"camera", 0}});
    EXPECT_THROW(Do({{"command", "restage"}, {"stage", stage}}), std::runtime_error);
    Do({{"command", "unplug"}, {"camera", 0}});
    Do({{"command", "restage"}, {"stage", stage}});
    EXPECT_EQ(Do({{"command", "state"}, {"camera", 1}}).at("version"), "5.6.7.8");
    EXPECT_EQ(Do({{"command", "state"}, {"camera", 1}}).at("on_its_way"), false);
}

TEST_F(RigCommandsTest, TellsWhatTheProcessHolds) {
    Begin({});
    const json answer = Do({{"command", "resources"}});
    EXPECT_GT(answer.at("handles").get<int>(), 0);
    EXPECT_GT(answer.at("threads").get<int>(), 0);
    EXPECT_GT(answer.at("thread_block_bytes").get<std::uint64_t>(), 0U);
    EXPECT_GT(answer.at("private_bytes"), answer.at("thread_block_bytes"));
    EXPECT_EQ(answer.at("camera_bytes"), 0);
}

TEST_F(RigCommandsTest, TellsTheMemoryOfTheCamerasFlash) {
    Begin({QuickCamera(), QuickCamera()});
    const auto bytes = Do({{"command", "resources"}}).at("camera_bytes").get<std::size_t>();
    EXPECT_GE(bytes, bus_->Flash(0).size() + bus_->Flash(1).size());
}

TEST_F(RigCommandsTest, StartsThreadsThatOnlyWait) {
    Begin({});
    const int before = Do({{"command", "resources"}}).at("threads");
    Do({{"command", "idle-threads"}, {"count", 3}});
    EXPECT_EQ(Do({{"command", "resources"}}).at("threads"), before + 3);
    EXPECT_THROW(Do({{"command", "idle-threads"}, {"count", 101}}), std::runtime_error);
    EXPECT_THROW(Do({{"command", "idle-threads"}, {"count", -1}}), std::runtime_error);
}

TEST_F(RigCommandsTest, ReadsABurst) {
    json command = EventCommand("burst", 0x8000, "x");
    command["count"] = 30'000;
    command["per_second"] = 10'000;
    const EventBurst burst = BurstOf(command);
    EXPECT_EQ(burst.event.type, 0x8000U);
    EXPECT_EQ(burst.event.link, L"x");
    EXPECT_EQ(burst.count, 30'000U);
    EXPECT_EQ(burst.perSecond, 10'000U);
    for (const char* field : {"count", "per_second"}) {
        for (const json& value : {json(0), json(-1), json(1'000'001), json("many")}) {
            json wrong = command;
            wrong[field] = value;
            EXPECT_THROW(static_cast<void>(BurstOf(wrong)), std::exception) << wrong;
        }
    }
    command["per_second"] = 1;
    EXPECT_THROW(static_cast<void>(BurstOf(command)), std::exception);
}
