#include "host/campaign/CurrentTrial.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include <unistd.h>

namespace campaign {
namespace {

constexpr int kDied = 3;

// In a process of its own, whose standard output is the one that the test reads.
void Begin(const char* id) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    CurrentTrial::Watch();
    CurrentTrial::Set("kv400.402x1");
    CurrentTrial::Set(id);
}

TEST(CurrentTrialDeathTest, AnAbortTellsTheTrialThatWentOn) {
    EXPECT_EXIT(
        {
            Begin("kv400.2500x1.1gs3-time");
            std::abort();
        },
        testing::ExitedWithCode(kDied), R"(\{"died": "kv400\.2500x1\.1gs3-time"\})");
}

TEST(CurrentTrialDeathTest, SoDoesTheAlarmOfATrialThatTakesTooLong) {
    EXPECT_EXIT(
        {
            Begin("kv400.2500x1");
            std::raise(SIGALRM);
        },
        testing::ExitedWithCode(kDied), R"(\{"died": "kv400\.2500x1"\})");
}

TEST(CurrentTrialDeathTest, AnIdThatIsTooLongIsCutOff) {
    const std::string id(1000, 'x');
    EXPECT_EXIT(
        {
            Begin(id.c_str());
            std::abort();
        },
        testing::ExitedWithCode(kDied), "x{400}");
}

}  // namespace
}  // namespace campaign
