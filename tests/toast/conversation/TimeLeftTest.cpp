#include "toast/conversation/TimeLeft.h"

#include <gtest/gtest.h>

namespace toast {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// One block each half second, the first after ten seconds.
TimeLeft After(std::uint32_t blocks) {
    TimeLeft left;
    for (std::uint32_t block = 1; block <= blocks; ++block) {
        left.Reach(block, milliseconds(10'000 + 500 * block));
    }
    return left;
}

TEST(TimeLeft, IsNotKnownBeforeThereIsEnoughToJudgeBy) {
    EXPECT_EQ(TimeLeft().Of(100, seconds(5)), std::nullopt);
    EXPECT_EQ(After(5).Of(100, milliseconds(12'500)), std::nullopt);
    TimeLeft quick;
    quick.Reach(1, milliseconds(0));
    quick.Reach(50, milliseconds(1999));
    EXPECT_EQ(quick.Of(100, milliseconds(1999)), std::nullopt);
}

TEST(TimeLeft, IsThatOfTheBlocksAheadAtTheAverageSoFar) {
    EXPECT_EQ(After(6).Of(100, milliseconds(13'000)), seconds(47));
    EXPECT_EQ(After(50).Of(100, milliseconds(35'000)), seconds(25));
}

TEST(TimeLeft, RunsDownBetweenTwoBlocks) {
    EXPECT_EQ(After(50).Of(100, milliseconds(38'000)), seconds(22));
    EXPECT_EQ(After(99).Of(100, milliseconds(63'000)), seconds(0));
}

TEST(TimeLeft, IsNothingBeyondTheEnd) {
    EXPECT_EQ(After(101).Of(100, milliseconds(60'500)), seconds(0));
}

TEST(TimeLeft, IsNotKnownAnyMoreInSilence) {
    EXPECT_NE(After(50).Of(100, milliseconds(45'000)), std::nullopt);
    EXPECT_EQ(After(50).Of(100, milliseconds(45'001)), std::nullopt);
}

}  // namespace
}  // namespace toast
