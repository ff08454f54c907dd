#include "toast/window/EventInbox.h"

#include <gtest/gtest.h>

#include <vector>

namespace toast {
namespace {

Event Number(ClientId client, std::uint32_t number) {
    return {client, StatusLine(BlocksTaken{number})};
}

class EventInboxTest : public testing::Test {
  protected:
    std::vector<bool> busy_;
    EventInbox inbox_{[this](bool busy) { busy_.push_back(busy); }};
};

TEST_F(EventInboxTest, GivesWhatItGotInOrder) {
    EXPECT_TRUE(inbox_.Put({1, ClientCame{}}));
    EXPECT_TRUE(inbox_.Put({1, Question{L"1", L"2"}}));
    const std::deque<Event> events = inbox_.TakeAll();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_TRUE(std::holds_alternative<ClientCame>(events[0].what));
    EXPECT_EQ(std::get<Question>(events[1].what), (Question{L"1", L"2"}));
    EXPECT_TRUE(inbox_.TakeAll().empty());
}

TEST_F(EventInboxTest, IsBusyFromTheFirstEventToTheRest) {
    EXPECT_TRUE(inbox_.Put({1, ClientCame{}}));
    EXPECT_TRUE(inbox_.Put({1, DownloadOver{}}));
    EXPECT_EQ(busy_, std::vector<bool>{true});
    inbox_.Rest();
    EXPECT_EQ(busy_, std::vector<bool>{true});
    static_cast<void>(inbox_.TakeAll());
    inbox_.Rest();
    inbox_.Rest();
    EXPECT_EQ(busy_, (std::vector<bool>{true, false}));
}

TEST_F(EventInboxTest, HoldsTheLastOfAClientsNumbersInARow) {
    EXPECT_TRUE(inbox_.Put(Number(1, 5)));
    EXPECT_TRUE(inbox_.Put(Number(1, 6)));
    EXPECT_TRUE(inbox_.Put(Number(2, 7)));
    EXPECT_TRUE(inbox_.Put(Number(1, 8)));
    EXPECT_TRUE(inbox_.Put({1, StatusLine(DownloadStart{9})}));
    EXPECT_TRUE(inbox_.Put(Number(1, 1)));
    const std::deque<Event> events = inbox_.TakeAll();
    ASSERT_EQ(events.size(), 5u);
    EXPECT_EQ(std::get<StatusLine>(events[0].what), StatusLine(BlocksTaken{6}));
    EXPECT_EQ(std::get<StatusLine>(events[4].what), StatusLine(BlocksTaken{1}));
}

TEST_F(EventInboxTest, LosesNoComingAndGoingWhenItIsFull) {
    for (std::size_t count = 0; count < EventInbox::kCapacity; ++count) {
        EXPECT_TRUE(inbox_.Put({1, DownloadOver{}}));
    }
    EXPECT_FALSE(inbox_.Put({1, DownloadOver{}}));
    EXPECT_TRUE(inbox_.Put({2, ClientCame{}}));
    EXPECT_TRUE(inbox_.Put({1, ClientLeft{}}));
    EXPECT_EQ(inbox_.TakeAll().size(), EventInbox::kCapacity + 2);
    EXPECT_TRUE(inbox_.Put({1, DownloadOver{}}));
}

// A wrapped-around number must not be lost between two others.
TEST_F(EventInboxTest, KeepsTheNumbersRoundTheirTurn) {
    EXPECT_TRUE(inbox_.Put(Number(1, 65'535)));
    EXPECT_TRUE(inbox_.Put(Number(1, 0)));
    EXPECT_TRUE(inbox_.Put(Number(1, 1)));
    EXPECT_EQ(inbox_.TakeAll().size(), 3u);
}

}  // namespace
}  // namespace toast
