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
