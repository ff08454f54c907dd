#include "check/Probe.h"

#include <gtest/gtest.h>

using namespace check;

namespace {

const std::vector<Probe> kProbes{
    Asked(1, "one", "the first", "yes", "yes"),
    Asked(2, "two", "the second", "yes", "no"),
    NotAsked(3, "three", "the third", "it would take a camera"),
};

}  // namespace

TEST(Probe, IsAsExpectedWhenItSawWhatItExpected) {
    EXPECT_EQ(kProbes[0].outcome, ProbeOutcome::AsExpected);
    EXPECT_EQ(kProbes[1].outcome, ProbeOutcome::Different);
    EXPECT_EQ(kProbes[2].outcome, ProbeOutcome::NotAsked);
}

TEST(Probe, IsTold) {
    EXPECT_EQ(ProbesText(kProbes), R"(1 as expected, 1 different, 1 not asked

1. the first: as expected
     seen      yes

2. the second: different
     expected  yes
     seen      no

3. the third: not asked
     it would take a camera
)");
}

TEST(Probe, IsToldToPrograms) {
    const std::string json = ProbesJson(kProbes, "1.2.3");
    EXPECT_NE(json.find("\"exit_code\": 10"), std::string::npos);
    EXPECT_NE(json.find("\"outcome\": \"not asked\""), std::string::npos);
}

TEST(Probe, OneThatDiffersIsAnExitCode) {
    EXPECT_EQ(ExitCodeOf(kProbes), 10);
    EXPECT_EQ(ExitCodeOf({kProbes[0], kProbes[2]}), 0);
    EXPECT_EQ(ExitCodeOf(std::vector<Probe>{}), 0);
}

TEST(Probe, TwoCamerasHaveTheLinksOfOne) {
    const std::string device = "\\\\?\\USB#vid_2f1a&pid_7e00#";
    const auto links = [&device](const std::string& number) {
        return std::vector<std::string>{device + number + "#{24e552d7-6523-47f7-a647-d3465bf1f5ca}\\global",
                                        device + number + "#{e5323777-f976-4f5b-9b55-b94699c46e44}\\global"};
    };
    std::vector<std::string> both = links("1");
    for (const std::string& link : links("2")) {
        both.push_back(link);
    }
    EXPECT_EQ(check::ProbeLinks(both).outcome, check::ProbeOutcome::AsExpected);
    EXPECT_EQ(check::ProbeLinks(both).seen, "sensor camera ...\\global and video camera ...\\global");
    EXPECT_EQ(check::ProbeLinks({both[1]}).outcome, check::ProbeOutcome::AsExpected);
    EXPECT_EQ(check::ProbeLinks({both[0]}).outcome, check::ProbeOutcome::Different);
    EXPECT_EQ(check::ProbeLinks({device + "#{e5323777-f976-4f5b-9b55-b94699c46e44}"}).outcome,
              check::ProbeOutcome::Different);
    EXPECT_EQ(check::ProbeLinks({"\\\\?\\swd#camera"}).outcome, check::ProbeOutcome::NotAsked);
}

TEST(Probe, WhatWindowsRemembersOfTheDescriptorIsANote) {
    using Answers = std::vector<check::RememberedAnswer>;
    const check::Probe none = check::ProbeOsDescriptors({});
    EXPECT_EQ(none.outcome, check::ProbeOutcome::NotAsked);
    EXPECT_EQ(none.seen, "no camera of the family was ever plugged in here");
    const check::Probe three = check::ProbeOsDescriptors(
        Answers{{"2F1A7E000100", {}}, {"2F1A7E010100", {1, 0x20}}, {"2F1A7E020100", {0, 0}}});
    EXPECT_EQ(three.outcome, check::ProbeOutcome::NotAsked);
    EXPECT_EQ(
        three.seen,
        "which answer is right, the camera alone knows; 2F1A7E000100 tells nothing, 2F1A7E010100 has one "
        "and 2F1A7E020100 has none");
}
