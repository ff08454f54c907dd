#include "lab/guest/RunningProgram.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <string>
#include <system_error>

using lab::guest::RunningProgram;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr seconds kLong{60};

// Looks after it as the helper does.
void WaitForEnd(RunningProgram& program) {
    while (!program.TakeOutput()) {
        std::array<pollfd, 2> waiting{pollfd{program.Output(), POLLIN, 0},
                                      pollfd{program.Process(), POLLIN, 0}};
        poll(waiting.data(), waiting.size(), 20);
    }
}

}  // namespace

TEST(RunningProgram, KeepsWhatItWritesAndItsExitCode) {
    RunningProgram program({"sh", "-c", "echo out; echo err >&2; exit 3"}, kLong);
    WaitForEnd(program);
    EXPECT_EQ(program.Text(), "out\nerr\n");
    EXPECT_EQ(program.Status(), 3);
    EXPECT_FALSE(program.IsOutOfTime());
}

TEST(RunningProgram, HandsItsArgumentsOverUnchanged) {
    RunningProgram program({"printf", "%s|", "a b", "", "$HOME"}, kLong);
    WaitForEnd(program);
    EXPECT_EQ(program.Text(), "a b||$HOME|");
    EXPECT_EQ(program.Status(), 0);
}

TEST(RunningProgram, GivesItNothingToRead) {
    RunningProgram program({"cat"}, kLong);
    WaitForEnd(program);
    EXPECT_EQ(program.Status(), 0);
}

TEST(RunningProgram, TellsTheSignalThatEndedIt) {
    RunningProgram program({"sh", "-c", "kill -TERM $$"}, kLong);
    WaitForEnd(program);
    EXPECT_EQ(program.Status(), -SIGTERM);
}

TEST(RunningProgram, IsKilledWithItsChildrenWhenItsTimeIsOver) {
    RunningProgram program({"sh", "-c", "echo begun; sleep 1000 & sleep 1000"}, milliseconds(300));
    WaitForEnd(program);
    EXPECT_EQ(program.Text(), "begun\n");
    EXPECT_EQ(program.Status(), -SIGKILL);
    EXPECT_TRUE(program.IsOutOfTime());
}

TEST(RunningProgram, HasEndedThoughAChildOfItGoesOn) {
    RunningProgram program({"sh", "-c", "sleep 1000 & echo parent"}, kLong);
    WaitForEnd(program);
    EXPECT_EQ(program.Text(), "parent\n");
    EXPECT_EQ(program.Status(), 0);
    EXPECT_FALSE(program.IsOutOfTime());
}

TEST(RunningProgram, KeepsNoMoreThanItMay) {
    RunningProgram program({"head", "-c", std::to_string(RunningProgram::kMostOutput + 1), "/dev/zero"},
                           kLong);
    WaitForEnd(program);
    EXPECT_EQ(program.Text().size(), RunningProgram::kMostOutput);
    EXPECT_EQ(program.Status(), 0);
}

TEST(RunningProgram, TellsThatThereIsNoSuchProgram) {
    try {
        const RunningProgram program({"no-such-program"}, kLong);
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
        EXPECT_STREQ(error.what(), "starting no-such-program: No such file or directory");
    }
}
