#include "toast/conversation/DownloadCount.h"

#include <gtest/gtest.h>

namespace toast {
namespace {

using std::chrono::seconds;

DownloadCount CountOf(std::optional<std::uint32_t> blocks, std::initializer_list<std::uint32_t> numbers) {
    DownloadCount count(blocks, seconds(0));
    for (const std::uint32_t number : numbers) {
        count.Take(number, seconds(0));
    }
    return count;
}

TEST(DownloadCount, IsWholeOnlyWithTheBlockThatIsNotCountedAtItsStart) {
    EXPECT_EQ(CountOf(2, {1, 2, 3}).Ending(), DownloadEnding::kAllTaken);
    EXPECT_EQ(CountOf(2, {1, 2, 3}).Percent(), 100);
    EXPECT_EQ(CountOf(2, {1, 2}).Ending(), DownloadEnding::kLastMayBeMissing);
    EXPECT_EQ(CountOf(2, {1, 2}).Percent(), 66);
    EXPECT_EQ(CountOf(2, {1}).Ending(), DownloadEnding::kStopped);
    EXPECT_EQ(CountOf(2, {1}).Percent(), 33);
    EXPECT_EQ(CountOf(2, {}).Ending(), DownloadEnding::kStopped);
    EXPECT_EQ(CountOf(2, {}).Percent(), 0);
}

TEST(DownloadCount, OfAnImageBelowOneBlockIsAllOrNothing) {
    EXPECT_EQ(CountOf(0, {}).Ending(), DownloadEnding::kStopped);
    EXPECT_EQ(CountOf(0, {}).Percent(), 0);
    EXPECT_EQ(CountOf(0, {1}).Ending(), DownloadEnding::kAllTaken);
    EXPECT_EQ(CountOf(0, {1}).Percent(), 100);
}

TEST(DownloadCount, IsNeverAHundredPerCentTooSoon) {
    EXPECT_EQ(CountOf(1000, {1000}).Percent(), 99);
    EXPECT_EQ(CountOf(4'294'967'295, {65'535}).Percent(), 0);
}

TEST(DownloadCount, WithoutAStartHasNoEndToMeasureBy) {
    const DownloadCount count = CountOf(std::nullopt, {37});
    EXPECT_EQ(count.Blocks(), std::nullopt);
    EXPECT_EQ(count.Taken(), 37u);
    EXPECT_EQ(count.Percent(), std::nullopt);
    EXPECT_EQ(count.SecondsLeft(seconds(0)), std::nullopt);
    EXPECT_EQ(count.Ending(), DownloadEnding::kUnknown);
}

TEST(DownloadCount, DoesNotGoBackOrBeyondItsEnd) {
    EXPECT_EQ(CountOf(10, {5, 3, 5, 0}).Taken(), 5u);
    EXPECT_EQ(CountOf(10, {5, 12, 4'294'967'295}).Taken(), 5u);
    EXPECT_EQ(CountOf(10, {5, 11}).Taken(), 11u);
}

TEST(DownloadCount, GoesOnWhereTheNumbersStartAgain) {
    EXPECT_EQ(CountOf(65'536, {65'534, 65'535, 0}).Taken(), 65'536u);
    EXPECT_EQ(CountOf(65'536, {65'535, 0, 1}).Taken(), 65'537u);
    EXPECT_EQ(CountOf(65'536, {65'535, 0, 1}).Ending(), DownloadEnding::kAllTaken);
    EXPECT_EQ(CountOf(200'000, {65'535, 0, 65'535, 0, 7}).Taken(), 131'079u);
    // Not just because a number is small.
    EXPECT_EQ(CountOf(65'536, {65'534, 0, 1}).Taken(), 65'534u);
    EXPECT_EQ(CountOf(65'534, {65'535, 0}).Taken(), 65'535u);
    EXPECT_EQ(CountOf(200'000, {65'536}).Taken(), 0u);
}

TEST(DownloadCount, TellsTheTimeLeftUntilAllOfItsNumberAreTaken) {
    DownloadCount count(10, seconds(0));
    for (std::uint32_t block = 1; block <= 6; ++block) {
        count.Take(block, seconds(block));
    }
    EXPECT_EQ(count.SecondsLeft(seconds(6)), seconds(4));
    count.Take(11, seconds(11));
    EXPECT_EQ(count.SecondsLeft(seconds(11)), std::nullopt);
}

TEST(DownloadCount, IsSilentAfterFifteenSecondsWithNothingNew) {
    DownloadCount count(10, seconds(100));
    EXPECT_FALSE(count.IsSilent(seconds(114)));
    EXPECT_TRUE(count.IsSilent(seconds(115)));
    count.Take(1, seconds(115));
    EXPECT_FALSE(count.IsSilent(seconds(115)));
    count.Take(1, seconds(130));
    EXPECT_TRUE(count.IsSilent(seconds(130)));
}

}  // namespace
}  // namespace toast
