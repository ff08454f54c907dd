#include "toast/window/DialogContent.h"

#include <gtest/gtest.h>

namespace toast {
namespace {

using std::chrono::seconds;

DialogContent WordsOf(const Page& page) {
    return ContentOf(page, Texts(MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US)));
}

Page Question12() {
    Page page;
    page.kind = PageKind::kQuestion;
    page.question = {L"1.0.0.0", L"2.0.0.0"};
    page.relation = VersionRelation::kNewer;
    return page;
}

Page DownloadAt(std::optional<int> percent) {
    Page page;
    page.kind = PageKind::kDownload;
    page.hasDownload = true;
    page.percent = percent;
    page.blocksTaken = 7;
    return page;
}

Page EndOf(Ending ending) {
    Page page;
    page.kind = PageKind::kEnd;
    page.ending = ending;
    page.percent = 37;
    return page;
}

TEST(DialogContent, AsksWithBothVersionsAndTwoButtons) {
    const DialogContent words = WordsOf(Question12());
    EXPECT_EQ(words.title, L"Camera firmware");
    EXPECT_EQ(words.instruction, L"Update the firmware of a camera?");
    EXPECT_EQ(words.content,
              L"A camera of the KV400 family has firmware 1.0.0.0. This computer has firmware 2.0.0.0 for "
              L"it, which "
              L"is newer.");
    EXPECT_EQ(words.footer,
              L"Once you have chosen Update, do not unplug the camera, and leave the computer on, until this "
              L"window "
              L"shows the end.");
    EXPECT_EQ(words.updateButton, L"&Update");
    EXPECT_EQ(words.dismissButton, L"&Not now");
    EXPECT_EQ(words.bar, DialogContent::Bar::kNone);
    EXPECT_TRUE(words.needsAttention);
    EXPECT_FALSE(words.isWarning);
}

TEST(DialogContent, SaysWhenTheFirmwareIsOlderOrJustDifferent) {
    Page page = Question12();
    page.relation = VersionRelation::kOlder;
    EXPECT_EQ(WordsOf(page).instruction, L"Put an older firmware into a camera?");
    EXPECT_NE(WordsOf(page).content.find(L"2.0.0.0 for it, which is older."), std::wstring::npos);
    page.relation = VersionRelation::kDifferent;
    EXPECT_EQ(WordsOf(page).instruction, L"Update the firmware of a camera?");
    EXPECT_NE(WordsOf(page).content.find(L"a different firmware for it: 2.0.0.0."), std::wstring::npos);
}

TEST(DialogContent, SaysWhenAVersionIsNotTold) {
    Page page = Question12();
    page.question.present.clear();
    EXPECT_NE(WordsOf(page).content.find(L"has firmware (not told)."), std::wstring::npos);
}

TEST(DialogContent, SaysWhenAQuestionReplacesAnother) {
    Page page = Question12();
    page.replacesEarlier = true;
    EXPECT_TRUE(WordsOf(page).content.ends_with(
        L"\n\nThis question takes the place of an earlier one, which was not answered."));
}

TEST(DialogContent, TellsOfADownloadBehindAQuestion) {
    Page page = Question12();
    page.hasDownload = true;
    page.percent = 37;
    EXPECT_TRUE(WordsOf(page).content.ends_with(
        L"\n\nMeanwhile a download goes on, 37 % so far: do not unplug that camera."));
    page.percent.reset();
    EXPECT_TRUE(
        WordsOf(page).content.ends_with(L"\n\nMeanwhile a download goes on: do not unplug that camera."));
}

TEST(DialogContent, WaitsWithAMovingBar) {
    Page page;
    page.kind = PageKind::kWaiting;
    const DialogContent words = WordsOf(page);
    EXPECT_EQ(words.instruction, L"Waiting for the download to start");
    EXPECT_EQ(words.content, L"Do not unplug the camera. It may be away for a moment meanwhile.");
    EXPECT_EQ(words.updateButton, L"");
    EXPECT_EQ(words.dismissButton, L"&Hide");
    EXPECT_EQ(words.bar, DialogContent::Bar::kMoving);
    EXPECT_FALSE(words.needsAttention);
}

TEST(DialogContent, ShowsHowFarADownloadIs) {
    Page page = DownloadAt(37);
    EXPECT_EQ(WordsOf(page).instruction, L"A camera is getting its firmware");
    EXPECT_EQ(WordsOf(page).content, L"37 % done.\nHow long it takes is not known yet.");
    EXPECT_EQ(WordsOf(page).bar, DialogContent::Bar::kPercent);
    EXPECT_EQ(WordsOf(page).percent, 37);
    EXPECT_EQ(WordsOf(page).dismissButton, L"&Hide");
    EXPECT_FALSE(WordsOf(page).needsAttention);
    page.isSilent = true;
    EXPECT_EQ(WordsOf(page).content, L"37 % done.\nNothing new for a while. Please keep waiting.");
    page.percent = 100;
    EXPECT_EQ(WordsOf(page).content,
              L"The camera has taken everything.\nIt is not finished yet. Please keep waiting.");
}

TEST(DialogContent, ShowsADownloadWithoutAStartByItsBlocks) {
    const DialogContent words = WordsOf(DownloadAt(std::nullopt));
    EXPECT_EQ(words.content, L"7 blocks done.\nHow long it takes is not known yet.");
    EXPECT_EQ(words.bar, DialogContent::Bar::kMoving);
}

TEST(DialogContent, RoundsTheTimeLeft) {
    const auto textAt = [](seconds left) {
        Page page = DownloadAt(37);
        page.timeLeft = left;
        return WordsOf(page).content;
    };
    EXPECT_EQ(textAt(seconds(0)), L"37 % done.\nAbout 10 seconds left.");
    EXPECT_EQ(textAt(seconds(11)), L"37 % done.\nAbout 20 seconds left.");
    EXPECT_EQ(textAt(seconds(50)), L"37 % done.\nAbout 50 seconds left.");
    EXPECT_EQ(textAt(seconds(51)), L"37 % done.\nAbout a minute left.");
    EXPECT_EQ(textAt(seconds(89)), L"37 % done.\nAbout a minute left.");
    EXPECT_EQ(textAt(seconds(90)), L"37 % done.\nAbout 2 minutes left.");
    EXPECT_EQ(textAt(seconds(3600)), L"37 % done.\nAbout 60 minutes left.");
}

TEST(DialogContent, TellsEachEndAndWhatToDo) {
    struct Case {
        Ending ending;
        const wchar_t* instruction;
        const wchar_t* part;
    };
    for (const Case& each : {
             Case{Ending::kAllTaken, L"The camera has taken the whole firmware",
                  L"Wait until the camera is back"},
             Case{Ending::kLastMayBeMissing, L"The last block may be missing",
                  L"unplug it and plug it in again"},
             Case{Ending::kStopped, L"The download stopped at 37 %", L"Unplug it and plug it in again"},
             Case{Ending::kUnknown, L"The download is over", L"is not known"},
             Case{Ending::kNeverBegan, L"The download was over before it began", L"Unplug the camera"},
             Case{Ending::kNothingStarted, L"Nothing has started", L"within 60 seconds of your answer"},
             Case{Ending::kClientGone, L"The update service has gone away",
                  L"The camera had taken 37 % of its firmware by then. Whether"},
         }) {
        const DialogContent words = WordsOf(EndOf(each.ending));
        EXPECT_EQ(words.instruction, each.instruction);
        EXPECT_NE(words.content.find(each.part), std::wstring::npos) << testing::PrintToString(words.content);
        EXPECT_EQ(words.dismissButton, L"&Close");
        EXPECT_EQ(words.updateButton, L"");
        EXPECT_EQ(words.isWarning, each.ending != Ending::kAllTaken);
        EXPECT_TRUE(words.needsAttention);
    }
    Page gone = EndOf(Ending::kClientGone);
    gone.percent.reset();
    EXPECT_TRUE(WordsOf(gone).content.starts_with(L"Whether the camera gets its firmware is not known."));
}

TEST(DialogContent, OfNoPageIsATitleAlone) {
    DialogContent title;
    title.title = L"Camera firmware";
    EXPECT_EQ(WordsOf(Page()), title);
}

TEST(DialogContent, HasTheFrameOfAnotherWithOtherContent) {
    const DialogContent words = WordsOf(DownloadAt(37));
    EXPECT_TRUE(words.HasFrameOf(WordsOf(DownloadAt(38))));
    EXPECT_FALSE(words.HasFrameOf(WordsOf(DownloadAt(std::nullopt))));
    EXPECT_FALSE(words.HasFrameOf(WordsOf(Question12())));
}

}  // namespace
}  // namespace toast
