#include "host/campaign/Kind.h"
#include "lab/vocabulary/CameraFields.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace campaign {
namespace {

using nlohmann::json;

TEST(WrittenFieldsTest, ACameraIsReadAsItWasWritten) {
    for (const Kind& kind : Kinds()) {
        const json written = lab::WriteCameraFields(SettingsOf(kind));
        json others;
        EXPECT_EQ(written, lab::WriteCameraFields(lab::ReadCameraFields(written, others))) << kind.name;
        EXPECT_TRUE(others.empty()) << kind.name;
    }
}

TEST(WrittenFieldsTest, WhatAKindDepartsInIsWritten) {
    EXPECT_EQ(lab::WriteCameraFields(SettingsOf(*FindKind("first-page-of-two-banks"))),
              (json{{"personality", "kv400"},
                    {"transfer_size", 1024},
                    {"block_ms", 150},
                    {"manifest_ms", 300},
                    {"two_banks", true},
                    {"page_size", 1024},
                    {"traits", {{"boot_check", "first page"}}}}));
    EXPECT_EQ(lab::WriteCameraFields(SettingsOf(*FindKind("overwrites"))).at("traits"),
              (json{{"puts_back", false}}));
    EXPECT_EQ(lab::WriteCameraFields(SettingsOf(*FindKind("tolerant"))).at("personality"), "tolerant");
    EXPECT_FALSE(lab::WriteCameraFields(SettingsOf(*FindKind("tolerant"))).contains("traits"));
}

TEST(WrittenFieldsTest, AFaultIsWrittenWhole) {
    const lab::Fault fault{.where = lab::Fault::Where::Dnload,
                           .what = lab::Fault::What::Unplug,
                           .skip = 2,
                           .count = 0,
                           .value = 100,
                           .setsError = false,
                           .moment = lab::Fault::Moment::Middle};
    const json written = lab::WriteFault(fault);
    EXPECT_EQ(written, (json{{"where", "DNLOAD"},
                             {"what", "unplug"},
                             {"skip", 2},
                             {"count", 0},
                             {"value", 100},
                             {"sets_error", false},
                             {"moment", "middle"}}));
    EXPECT_EQ(lab::WriteFault(lab::ReadFaults(json::array({written})).front()), written);
}

}  // namespace
}  // namespace campaign
