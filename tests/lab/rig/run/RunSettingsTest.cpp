#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "lab/rig/run/RunSettings.h"

using lab::rig::RunSettings;
using nlohmann::json;

TEST(RunSettings, SaysNothingUnlessAsked) {
    const RunSettings settings = RunSettings::FromStage({{"reply", "stage"}});
    EXPECT_FALSE(settings.trace.has_value());
    EXPECT_EQ(settings.bus.transferTime.count(), 0);
    EXPECT_TRUE(settings.bus.cameras.empty());
    EXPECT_FALSE(settings.recordsPrompts);
    EXPECT_FALSE(RunSettings::FromStage({{"trace", nullptr}}).trace.has_value());
}

TEST(RunSettings, TakesWhereACameraStarts) {
    using lab::rig::StartingPlace;
    const RunSettings settings = RunSettings::FromStage(json::parse(
        R"({"cameras": [{}, {"starts": "unplugged"}, {"starts": "running"}, {"starts": "dfu"}]})"));
    EXPECT_EQ(settings.bus.startingPlaces, (std::vector{StartingPlace::Unplugged, StartingPlace::Unplugged,
                                                        StartingPlace::Running, StartingPlace::InDfuMode}));
    EXPECT_THROW(
        static_cast<void>(RunSettings::FromStage(json::parse(R"({"cameras": [{"starts": "here"}]})"))),
        std::runtime_error);
    EXPECT_THROW(static_cast<void>(RunSettings::FromStage(
                     json::parse(R"({"bus": "usb", "cameras": [{"starts": "running"}]})"))),
                 std::runtime_error);
}

TEST(RunSettings, TakesEveryField) {
    const RunSettings settings = RunSettings::FromStage(json::parse(R"({
        "trace": {"level": 8, "flags": 4294967295}, "transfer_us": 250, "failed_media_starts": 2,
        "records_prompts": true, "event_records": ["<Event/>"],
        "cameras": [{"version": "1.2.11.255", "personality": "strict", "transfer_size": 65535, "block_ms": 1,
            "manifest_ms": 2, "manifests_at_once": true, "reset_ms": 3, "detach_ms": 4, "enumerate_ms": 5,
            "configuration_descriptor": "09 02aB", "has_extension_unit": false,
            "faults": [{"where": "COMMAND-READ", "what": "echo", "skip": 6, "count": 7, "value": 4294967295,
                        "sets_error": false, "moment": "after"}]}]})"));
    ASSERT_TRUE(settings.trace.has_value());
    EXPECT_EQ(settings.trace->level, 8);
    EXPECT_EQ(settings.trace->flags, 0xFFFFFFFFU);
    EXPECT_EQ(settings.bus.transferTime.count(), 250);
    EXPECT_EQ(settings.failedMediaStarts, 2U);
    EXPECT_TRUE(settings.recordsPrompts);
    EXPECT_EQ(settings.eventRecords, std::vector<std::string>{"<Event/>"});
    ASSERT_EQ(settings.bus.cameras.size(), 1U);
    const auto& camera = settings.bus.cameras[0];
    EXPECT_EQ(camera.version, (std::array<std::uint8_t, 4>{1, 2, 11, 255}));
    EXPECT_EQ(camera.personality, lab::Personality::Strict);
    EXPECT_EQ(camera.transferSize, 65535);
    EXPECT_EQ(camera.blockMs, 1U);
    EXPECT_EQ(camera.manifestMs, 2U);
    EXPECT_TRUE(camera.manifestsAtOnce);
    EXPECT_EQ(camera.resetMs, 3U);
    EXPECT_EQ(camera.detachMs, 4U);
    EXPECT_EQ(camera.enumerateMs, 5U);
    EXPECT_EQ(camera.configurationDescriptor, (std::vector<std::uint8_t>{0x09, 0x02, 0xAB}));
    EXPECT_FALSE(camera.hasExtensionUnit);
    ASSERT_EQ(camera.faults.size(), 1U);
    EXPECT_EQ(camera.faults[0].where, lab::Fault::Where::CommandRead);
    EXPECT_EQ(camera.faults[0].what, lab::Fault::What::WrongEcho);
    EXPECT_EQ(camera.faults[0].skip, 6U);
    EXPECT_EQ(camera.faults[0].count, 7U);
    EXPECT_EQ(camera.faults[0].value, 0xFFFFFFFFU);
    EXPECT_FALSE(camera.faults[0].setsError);
    EXPECT_EQ(camera.faults[0].moment, lab::Fault::Moment::After);
}

// A scenario with a slip of the pen must not run as if it had said nothing.
TEST(RunSettings, RefusesWhatItDoesNotUnderstand) {
    for (const char* text : {R"({"camera": []})",
                             R"({"transfer_us": -1})",
                             R"({"trace": {"level": 256, "flags": 0}})",
                             R"({"trace": {"level": 1}})",
                             R"({"cameras": [{"versoin": "1.2.3.4"}]})",
                             R"({"cameras": [{"version": "1.2.3"}]})",
                             R"({"cameras": [{"version": "1.2.3.256"}]})",
                             R"({"cameras": [{"version": "1.2.3.4.5"}]})",
                             R"({"cameras": [{"version": 5}]})",
                             R"({"cameras": [{"personality": "kind"}]})",
                             R"({"cameras": [{"transfer_size": 65536}]})",
                             R"({"cameras": [{"block_ms": "1"}]})",
                             R"({"cameras": [{"configuration_descriptor": "0"}]})",
                             R"({"cameras": [{"configuration_descriptor": "zz"}]})",
                             R"({"cameras": [{"has_extension_unit": 1}]})",
                             R"({"cameras": [{"driver_ms": "late"}]})",
                             R"({"cameras": [{"speed": "warp"}]})",
                             R"({"cameras": [{"listed_as": "camera"}]})",
                             R"({"cameras": [{"unplug_error": 5}]})",
                             R"({"cameras": [{"removal_notices": "never"}]})",
                             R"({"cameras": [{"faults": [{"where": "NOWHERE"}]}]})",
                             R"({"cameras": [{"faults": [{"what": "?"}]}]})",
                             R"({"cameras": [{"faults": [{"when": 1}]}]})"}) {
        EXPECT_THROW((void)RunSettings::FromStage(json::parse(text)), std::exception) << text;
    }
}

TEST(RunSettings, TakesWhatADeviceOnAStrangeBusDoes) {
    const RunSettings settings = RunSettings::FromStage(json::parse(R"({
        "skip_waits": true,
        "cameras": [{"nodes": ["processing", "foreign", "broken", "extension-unit"], "two_banks": true,
            "timeout_ms": 700, "driver_ms": 3000, "speed": "full", "listed_as": "capture", "unplug_error": 1167,
            "removal_notices": "after the arrival is handled", "link_case": "mixed", "link_length": 32767, "listed_twice": true,
            "faults": [{"where": "GET-DESCRIPTOR", "what": "stall"}, {"where": "GETSTATUS", "what": "poll"},
                       {"where": "SET-INTERFACE", "what": "stall"}]},
            {"driver_ms": "never", "speed": "super", "removal_notices": "while the arrival is handled"}, {}]})"));
    EXPECT_TRUE(settings.bus.skipsWaits);
    using lab::TopologyNode;
    EXPECT_EQ(settings.bus.cameras[0].nodes,
              (std::vector{TopologyNode::Processing, TopologyNode::Foreign, TopologyNode::Broken,
                           TopologyNode::ExtensionUnit}));
    EXPECT_TRUE(settings.bus.cameras[0].hasTwoBanks);
    EXPECT_EQ(settings.bus.cameras[0].timeoutMs, 700U);
    EXPECT_EQ(settings.bus.cameras[2].timeoutMs, 5000U);
    EXPECT_EQ(settings.bus.cameras[0].speed, lab::Speed::Full);
    EXPECT_EQ(settings.bus.cameras[1].speed, lab::Speed::Super);
    EXPECT_EQ(settings.bus.cameras[2].speed, lab::Speed::High);
    EXPECT_EQ(settings.bus.cameras[0].driverStartMs, 3000U);
    EXPECT_EQ(settings.bus.cameras[1].driverStartMs, std::nullopt);
    EXPECT_EQ(settings.bus.cameras[0].faults[0].where, lab::Fault::Where::GetDescriptor);
    EXPECT_EQ(settings.bus.cameras[0].faults[1].what, lab::Fault::What::PollTime);
    EXPECT_EQ(settings.bus.cameras[0].faults[2].where, lab::Fault::Where::SetInterface);
    ASSERT_EQ(settings.bus.linkStyles.size(), 3U);
    EXPECT_EQ(settings.bus.linkStyles[0].announcedIn, lab::rig::LinkStyle::Case::Mixed);
    EXPECT_EQ(settings.bus.linkStyles[0].length, 32767U);
    EXPECT_TRUE(settings.bus.linkStyles[0].isListedTwice);
    EXPECT_EQ(settings.bus.linkStyles[1].announcedIn, lab::rig::LinkStyle::Case::AsWindows);
    EXPECT_EQ(settings.bus.linkStyles[0].listed, lab::rig::LinkStyle::Listed::AsCapture);
    EXPECT_EQ(settings.bus.linkStyles[1].listed, lab::rig::LinkStyle::Listed::AsVideoCamera);
    using Notices = lab::rig::Departure::Notices;
    ASSERT_EQ(settings.bus.departures.size(), 3U);
    EXPECT_EQ(settings.bus.departures[0].transferError, DWORD{ERROR_DEVICE_NOT_CONNECTED});
    EXPECT_EQ(settings.bus.departures[0].notices, Notices::AfterTheArrivalIsHandled);
    EXPECT_EQ(settings.bus.departures[1].notices, Notices::WhileTheArrivalIsHandled);
    EXPECT_EQ(settings.bus.departures[2].notices, Notices::WithTheLeaving);
    EXPECT_EQ(settings.bus.departures[2].transferError, std::nullopt);
    EXPECT_FALSE(RunSettings::FromStage({{"reply", "stage"}}).bus.skipsWaits);
}

TEST(RunSettings, TakesATraitForAnotherThanThePersonalitys) {
    const RunSettings settings = RunSettings::FromStage(json::parse(R"({"cameras": [
        {"personality": "addressed-flash", "traits": {"detach": "restarts in dfu mode", "upload": "flash",
            "manifestation": "waits for reset", "set_interface": "stalls", "hides_status": false,
            "deaf_while_writing": false, "hid_in_front": true}},
        {"traits": {"busy_first": true}}, {"personality": "busy-first"}]})"));
    const lab::DfuTraits traits = lab::TraitsOf(settings.bus.cameras[0]);
    EXPECT_EQ(traits.detach, lab::DfuTraits::Detach::RestartsInDfuMode);
    EXPECT_EQ(traits.upload, lab::DfuTraits::Upload::Flash);
    EXPECT_EQ(traits.manifestation, lab::DfuTraits::Manifestation::WaitsForReset);
    EXPECT_EQ(traits.setInterface, lab::DfuTraits::SetInterface::Stalls);
    EXPECT_FALSE(traits.hidesStatus);
    EXPECT_FALSE(traits.isDeafWhileWriting);
    EXPECT_TRUE(traits.hasHidInFront);
    EXPECT_TRUE(traits.addressesBlocks);
    for (const std::size_t camera : {1U, 2U}) {
        EXPECT_TRUE(lab::TraitsOf(settings.bus.cameras[camera]).isBusyFirst);
        EXPECT_EQ(lab::TraitsOf(settings.bus.cameras[camera]).detach, lab::DfuTraits::Detach::Accepted);
    }
    EXPECT_THROW((void)RunSettings::FromStage(json::parse(R"({"cameras": [{"traits": {"kind": true}}]})")),
                 std::exception);
}
