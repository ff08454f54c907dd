#include "lab/served/HeldReplies.h"

#include <gtest/gtest.h>

#include <vector>

namespace lab::test {
namespace {

class HeldRepliesTest : public testing::Test {
  protected:
    void Hold(std::uint64_t id, std::optional<std::uint64_t> dueMs) {
        held_.Hold(id, dueMs, [this, id] { sent_.push_back(id); });
    }

    HeldReplies held_;
    std::vector<std::uint64_t> sent_;
};

TEST_F(HeldRepliesTest, AreSentWhenTheyAreDueInTheOrderOfTheirTimes) {
    Hold(1, 300);
    Hold(2, 100);
    Hold(3, 200);
    EXPECT_EQ(held_.NextDeadline(), 100U);
    held_.SendDue(99);
    EXPECT_TRUE(sent_.empty());
    held_.SendDue(200);
    EXPECT_EQ(sent_, (std::vector<std::uint64_t>{2, 3}));
    EXPECT_EQ(held_.NextDeadline(), 300U);
    held_.SendDue(1000);
    EXPECT_EQ(sent_, (std::vector<std::uint64_t>{2, 3, 1}));
    EXPECT_EQ(held_.NextDeadline(), std::nullopt);
}

TEST_F(HeldRepliesTest, WithoutATimeAreNeverSent) {
    Hold(1, std::nullopt);
    EXPECT_EQ(held_.NextDeadline(), std::nullopt);
    held_.SendDue(1'000'000);
    EXPECT_TRUE(sent_.empty());
    EXPECT_TRUE(held_.Cancel(1));
}

TEST_F(HeldRepliesTest, AreTakenBackOnce) {
    Hold(1, 100);
    EXPECT_FALSE(held_.Cancel(2));
    EXPECT_TRUE(held_.Cancel(1));
    EXPECT_FALSE(held_.Cancel(1));
    held_.SendDue(100);
    EXPECT_TRUE(sent_.empty());
}

TEST_F(HeldRepliesTest, MayHoldAnotherWhenTheyAreSent) {
    held_.Hold(1, 100, [this] { Hold(2, 100); });
    held_.SendDue(100);
    EXPECT_EQ(sent_, std::vector<std::uint64_t>{2});
}

TEST_F(HeldRepliesTest, AreForgottenTogether) {
    Hold(1, 100);
    held_.Clear();
    held_.SendDue(100);
    EXPECT_TRUE(sent_.empty());
}

}  // namespace
}  // namespace lab::test
