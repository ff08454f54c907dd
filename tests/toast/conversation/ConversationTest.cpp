#include "toast/conversation/Conversation.h"

#include <gtest/gtest.h>

#include "tests/toast/conversation/RecordingListener.h"

namespace toast {
namespace {

using std::chrono::minutes;
using std::chrono::seconds;
using Words = std::vector<std::string>;

constexpr ClientId kService = 1;
constexpr ClientId kOther = 2;

class ConversationTest : public testing::Test {
  protected:
    ConversationTest() {
        Come(kService);
        Come(kOther);
    }

    void Come(ClientId client) { conversation_.Take({client, ClientCame{}}, now_); }
    void Leave(ClientId client) { conversation_.Take({client, ClientLeft{}}, now_); }
    void Ask(const wchar_t* present, const wchar_t* offered, ClientId client = kService) {
        conversation_.Take({client, Question{present, offered}}, now_);
    }
    void Start(std::uint32_t blocks, ClientId client = kService) {
        conversation_.Take({client, StatusLine(DownloadStart{blocks})}, now_);
    }
    void Number(std::uint32_t number, ClientId client = kService) {
        conversation_.Take({client, StatusLine(BlocksTaken{number})}, now_);
    }
    void Complete(ClientId client = kService) { conversation_.Take({client, DownloadOver{}}, now_); }
    void PressUpdate() { conversation_.Press(Conversation::Button::kUpdate, now_); }
    void Dismiss() { conversation_.Press(Conversation::Button::kDismiss, now_); }
    void Wait(TimePoint time) {
        now_ += time;
        conversation_.Tick(now_);
    }
    [[nodiscard]] Page Shown() const { return conversation_.Shown(now_); }
    [[nodiscard]] PageKind Kind() const { return Shown().kind; }

    // The user accepts a question, and what is heard until then is forgotten.
    void Accept() {
        Ask(L"5.10.2.0", L"5.10.3.0");
        PressUpdate();
        static_cast<void>(listener_.Heard());
    }

    RecordingListener listener_;
    Conversation conversation_{listener_};
    TimePoint now_ = seconds(1000);
};

TEST_F(ConversationTest, ShowsNothingBeforeAnybodyAsks) {
    EXPECT_EQ(Shown(), Page());
    EXPECT_FALSE(conversation_.IsTimed());
}

TEST_F(ConversationTest, ShowsAQuestion) {
    Ask(L"5.10.2.0", L"5.10.3.0");
    EXPECT_EQ(Kind(), PageKind::kQuestion);
    EXPECT_EQ(Shown().question, (Question{L"5.10.2.0", L"5.10.3.0"}));
    EXPECT_EQ(Shown().relation, VersionRelation::kNewer);
    EXPECT_FALSE(Shown().replacesEarlier);
    EXPECT_FALSE(conversation_.IsTimed());
    EXPECT_EQ(listener_.Heard(), Words{"asked 5.10.2.0 to 5.10.3.0"});
}

TEST_F(ConversationTest, AnswersYesOnceAndWaits) {
    Ask(L"1.0.0.0", L"2.0.0.0");
    PressUpdate();
    PressUpdate();
    EXPECT_EQ(listener_.Heard(), (Words{"asked 1.0.0.0 to 2.0.0.0", "answered 1 to 1"}));
    EXPECT_EQ(Kind(), PageKind::kWaiting);
}

TEST_F(ConversationTest, AnswersNoOnceAndShowsNothing) {
    Ask(L"1.0.0.0", L"2.0.0.0");
    Dismiss();
    Dismiss();
    PressUpdate();
    EXPECT_EQ(listener_.Heard(), (Words{"asked 1.0.0.0 to 2.0.0.0", "answered 0 to 1"}));
    EXPECT_EQ(Kind(), PageKind::kNone);
}

TEST_F(ConversationTest, ReplacesAQuestionByAnotherAndSaysSo) {
    Ask(L"1.0.0.0", L"2.0.0.0");
    Ask(L"1.5.0.0", L"2.0.0.0");
    EXPECT_TRUE(Shown().replacesEarlier);
    EXPECT_EQ(Shown().question.present, L"1.5.0.0");
    Dismiss();
    EXPECT_EQ(listener_.Heard(), (Words{"asked 1.0.0.0 to 2.0.0.0", "replaced 1.0.0.0 to 2.0.0.0",
                                        "asked 1.5.0.0 to 2.0.0.0", "answered 0 to 1"}));
}

TEST_F(ConversationTest, KeepsAQuestionThatIsAskedAgain) {
    Ask(L"1.0.0.0", L"2.0.0.0");
    const Page before = Shown();
    Ask(L"1.0.0.0", L"2.0.0.0");
    EXPECT_EQ(Shown(), before);
    PressUpdate();
    EXPECT_EQ(listener_.Heard(), (Words{"asked 1.0.0.0 to 2.0.0.0", "answered 1 to 1"}));
}

TEST_F(ConversationTest, AnswersEveryClientThatAskedTheSame) {
    Ask(L"1.0.0.0", L"2.0.0.0");
    Ask(L"1.0.0.0", L"2.0.0.0", kOther);
    Dismiss();
    EXPECT_EQ(listener_.Heard(), (Words{"asked 1.0.0.0 to 2.0.0.0", "answered 0 to 1 2"}));
}

// A yes to one client's words must not become a yes to another's.
TEST_F(ConversationTest, AnswersNobodyButWhoAsked) {
    Ask(L"1.0.0.0", L"2.0.0.0");
    Ask(L"free", L"coffee", kOther);
    PressUpdate();
    EXPECT_EQ(listener_.Heard().back(), "answered 1 to 2");
}

TEST_F(ConversationTest, DropsAQuestionWhenTheLastWhoAskedIsGone) {
    Ask(L"1.0.0.0", L"2.0.0.0");
    Ask(L"1.0.0.0", L"2.0.0.0", kOther);
    Leave(kService);
    EXPECT_EQ(Kind(), PageKind::kQuestion);
    Leave(kOther);
    EXPECT_EQ(Kind(), PageKind::kNone);
    EXPECT_EQ(listener_.Heard(), (Words{"asked 1.0.0.0 to 2.0.0.0", "lapsed 1.0.0.0 to 2.0.0.0"}));
}

TEST_F(ConversationTest, ShowsADownloadFromItsStartToItsEnd) {
    Accept();
    Start(118);
    EXPECT_EQ(Kind(), PageKind::kDownload);
    EXPECT_EQ(Shown().percent, 0);
    Number(59);
    EXPECT_EQ(Shown().percent, 49);
    EXPECT_EQ(Shown().blocksTaken, 59u);
    Number(119);
    Complete();
    EXPECT_EQ(Kind(), PageKind::kEnd);
    EXPECT_EQ(Shown().ending, Ending::kAllTaken);
    Dismiss();
    EXPECT_EQ(Kind(), PageKind::kNone);
    EXPECT_EQ(listener_.Heard(), (Words{"started 118", "ended 0 119 of 118"}));
}

TEST_F(ConversationTest, EndsByWhatCanBeKnown) {
    Start(2);
    Number(2);
    Complete();
    EXPECT_EQ(Shown().ending, Ending::kLastMayBeMissing);
    Start(9);
    Number(4);
    Complete();
    EXPECT_EQ(Shown().ending, Ending::kStopped);
    EXPECT_EQ(Shown().percent, 40);
    Number(4);
    EXPECT_EQ(Kind(), PageKind::kDownload);
    EXPECT_EQ(Shown().percent, std::nullopt);
    Complete();
    EXPECT_EQ(Shown().ending, Ending::kUnknown);
    EXPECT_EQ(listener_.Heard(), (Words{"started 2", "ended 1 2 of 2", "started 9", "ended 2 4 of 9",
                                        "started unknown", "ended 3 4 of unknown"}));
}

TEST_F(ConversationTest, ShowsTheTimeLeftAndSilence) {
    Start(100);
    for (std::uint32_t block = 1; block <= 20; ++block) {
        Wait(seconds(1));
        Number(block);
    }
    EXPECT_EQ(Shown().timeLeft, seconds(80));
    EXPECT_FALSE(Shown().isSilent);
    Wait(seconds(15));
    EXPECT_EQ(Shown().timeLeft, std::nullopt);
    EXPECT_TRUE(Shown().isSilent);
}

TEST_F(ConversationTest, TakesNoNotice) {
    conversation_.Take({kService, StatusLine()}, now_);
    Number(0);
    EXPECT_EQ(Kind(), PageKind::kNone);
    EXPECT_EQ(listener_.Heard(), Words());
}

TEST_F(ConversationTest, StartsAnewWhenAStartFollowsAStart) {
    Start(10);
    Number(5);
    Start(20);
    EXPECT_EQ(Shown().percent, 0);
    EXPECT_EQ(listener_.Heard(), (Words{"started 10", "ended 2 5 of 10", "started 20"}));
}

TEST_F(ConversationTest, HearsOfADownloadFromWhoStartedItAlone) {
    Start(9);
    Number(3);
    Number(7, kOther);
    Complete(kOther);
    EXPECT_EQ(Kind(), PageKind::kDownload);
    EXPECT_EQ(Shown().percent, 30);
}

TEST_F(ConversationTest, HidesADownloadAndShowsItsEnd) {
    Start(9);
    Dismiss();
    EXPECT_EQ(Kind(), PageKind::kNone);
    Number(3);
    EXPECT_EQ(Kind(), PageKind::kNone);
    EXPECT_TRUE(conversation_.IsTimed());
    Complete();
    EXPECT_EQ(Kind(), PageKind::kEnd);
}

TEST_F(ConversationTest, HidesTheWaitingAndShowsTheDownload) {
    Accept();
    Dismiss();
    EXPECT_EQ(Kind(), PageKind::kNone);
    Start(9);
    EXPECT_EQ(Kind(), PageKind::kDownload);
}

TEST_F(ConversationTest, TellsWhenNothingStarts) {
    Accept();
    Dismiss();
    Wait(seconds(59));
    EXPECT_EQ(Kind(), PageKind::kNone);
    Wait(seconds(1));
    EXPECT_EQ(Kind(), PageKind::kEnd);
    EXPECT_EQ(Shown().ending, Ending::kNothingStarted);
    EXPECT_EQ(listener_.Heard(), Words{"ended 5 0 of unknown"});
    Start(9);
    EXPECT_EQ(Kind(), PageKind::kDownload);
}

TEST_F(ConversationTest, TellsOfAnEndWithoutABeginning) {
    Accept();
    Complete(kOther);
    EXPECT_EQ(Kind(), PageKind::kWaiting);
    Complete();
    EXPECT_EQ(Shown().ending, Ending::kNeverBegan);
    Dismiss();
    Complete(kOther);
    EXPECT_EQ(Shown().ending, Ending::kNeverBegan);
    EXPECT_EQ(listener_.Heard(), (Words{"ended 4 0 of unknown", "ended 4 0 of unknown"}));
}

TEST_F(ConversationTest, TellsWhenTheClientGoesAwayInTheMiddle) {
    Accept();
    Leave(kService);
    EXPECT_EQ(Shown().ending, Ending::kClientGone);
    EXPECT_EQ(Shown().percent, std::nullopt);
    Start(9, kOther);
    Number(5, kOther);
    Leave(kOther);
    EXPECT_EQ(Shown().ending, Ending::kClientGone);
    EXPECT_EQ(Shown().percent, 50);
    EXPECT_EQ(listener_.Heard(), (Words{"ended 6 0 of unknown", "started 9", "ended 6 5 of 9"}));
}

TEST_F(ConversationTest, TakesAwayAnUnreadEndTenMinutesAfterTheLastClient) {
    Start(9);
    Complete();
    Wait(minutes(60));
    EXPECT_EQ(Kind(), PageKind::kEnd);
    Leave(kService);
    Leave(kOther);
    Wait(minutes(9));
    EXPECT_EQ(Kind(), PageKind::kEnd);
    Come(3);
    Wait(minutes(2));
    EXPECT_EQ(Kind(), PageKind::kEnd);
    Leave(3);
    Wait(minutes(10));
    EXPECT_EQ(Kind(), PageKind::kNone);
    EXPECT_FALSE(conversation_.IsTimed());
}

TEST_F(ConversationTest, ShowsADownloadBehindAQuestion) {
    Accept();
    Ask(L"1.0.0.0", L"2.0.0.0");
    Start(9);
    Number(5);
    EXPECT_EQ(Kind(), PageKind::kQuestion);
    EXPECT_TRUE(Shown().hasDownload);
    EXPECT_EQ(Shown().percent, 50);
    Dismiss();
    EXPECT_EQ(Kind(), PageKind::kDownload);
}

// The second camera's download has its time from the end of the first one's.
TEST_F(ConversationTest, WaitsForASecondDownloadAfterTheFirst) {
    Start(9);
    Accept();
    EXPECT_EQ(Kind(), PageKind::kDownload);
    Wait(seconds(200));
    EXPECT_EQ(Kind(), PageKind::kDownload);
    Complete();
    EXPECT_EQ(Kind(), PageKind::kWaiting);
    Wait(seconds(59));
    EXPECT_EQ(Kind(), PageKind::kWaiting);
    Wait(seconds(1));
    EXPECT_EQ(Shown().ending, Ending::kNothingStarted);
}

TEST_F(ConversationTest, ShowsAnUnreadEndAgainAfterAQuestionIsRefused) {
    Start(9);
    Complete();
    Ask(L"1.0.0.0", L"2.0.0.0");
    EXPECT_EQ(Kind(), PageKind::kQuestion);
    Dismiss();
    EXPECT_EQ(Kind(), PageKind::kEnd);
    Accept();
    EXPECT_EQ(Kind(), PageKind::kWaiting);
}

}  // namespace
}  // namespace toast
