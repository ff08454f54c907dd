#include "toast/window/ConversationThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "win32/UniqueHandle.h"
#include "win32/Win32Error.h"
#include "tests/support/ImportRedirect.h"
#include "tests/toast/conversation/RecordingListener.h"
#include "tests/toast/window/FakeTaskDialog.h"

namespace toast {
namespace {

constexpr ClientId kService = 1;
constexpr int kUpdate = TaskWindow::kUpdateButton;
constexpr int kDismiss = TaskWindow::kDismissButton;

const std::wstring kQuestion = L"Update the firmware of a camera?";

class ConversationThreadTest : public testing::Test {
  protected:
    ConversationThreadTest() { Post(ClientCame{}); }

    void Post(decltype(Event::what) what) { EXPECT_TRUE(thread_->Post({kService, std::move(what)})); }
    void Ask() { Post(Question{L"5.10.2.0", L"5.10.3.0"}); }
    void Start(std::uint32_t blocks) { Post(StatusLine(DownloadStart{blocks})); }
    void Number(std::uint32_t number) { Post(StatusLine(BlocksTaken{number})); }

    [[nodiscard]] bool BecomesIdle() const {
        for (int look = 0; look < 1000 && busy_; ++look) {
            Sleep(10);
        }
        return !busy_;
    }

    FakeTaskDialog dialog_;
    RecordingListener listener_;
    std::atomic<bool> busy_ = false;
    std::unique_ptr<ConversationThread> thread_ = std::make_unique<ConversationThread>(
        listener_, Texts(MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US)), [this](bool busy) { busy_ = busy; });
};

TEST_F(ConversationThreadTest, ShowsAQuestionInATaskDialog) {
    Ask();
    ASSERT_TRUE(dialog_.ShowsInstruction(kQuestion));
    const FakeTaskDialog::Shown shown = dialog_.Last();
    EXPECT_EQ(shown.title, L"Camera firmware");
    EXPECT_NE(shown.content.find(L"5.10.2.0"), std::wstring::npos);
    EXPECT_EQ(shown.buttons, (std::vector<FakeTaskDialog::Button>{{100, L"&Update"}, {2, L"&Not now"}}));
    EXPECT_EQ(shown.defaultButton, 2);
    EXPECT_TRUE(shown.hasOwnIcon);
    // Cancelled by Escape, minimised, not brought to the front; and no text is a link.
    EXPECT_EQ(shown.flags,
              TDF_ALLOW_DIALOG_CANCELLATION | TDF_CAN_BE_MINIMIZED | TDF_USE_HICON_MAIN | 0x10000);
    EXPECT_TRUE(busy_);
}

TEST_F(ConversationThreadTest, ComesUpOnTopWithoutTheFocus) {
    Ask();
    ASSERT_TRUE(dialog_.Shows([&](const auto&) { return true; }));
    Start(9);
    ASSERT_TRUE(
        dialog_.Shows([](const auto& shown) { return shown.content.ends_with(L"unplug that camera."); }));
    EXPECT_TRUE(dialog_.HasCalled({"moved", "on top", "flashing", "moved"}));
    dialog_.Press(kDismiss);
    ASSERT_TRUE(dialog_.ShowsInstruction(L"A camera is getting its firmware"));
    Post(DownloadOver{});
    ASSERT_TRUE(dialog_.ShowsInstruction(L"The download stopped at 0 %"));
    dialog_.Press(kDismiss);
    EXPECT_TRUE(dialog_.Closes());
    EXPECT_TRUE(
        dialog_.HasCalled({"moved", "among the others", "not flashing", "moved", "on top", "flashing"}));
}

TEST_F(ConversationThreadTest, AnswersWhatTheUserPresses) {
    Ask();
    ASSERT_TRUE(dialog_.ShowsInstruction(kQuestion));
    dialog_.Press(kDismiss);
    EXPECT_TRUE(dialog_.Closes());
    EXPECT_TRUE(BecomesIdle());
    EXPECT_EQ(listener_.Heard(), (std::vector<std::string>{"asked 5.10.2.0 to 5.10.3.0", "answered 0 to 1"}));
}

TEST_F(ConversationThreadTest, GoesThroughADownloadInOneWindow) {
    Ask();
    ASSERT_TRUE(dialog_.ShowsInstruction(kQuestion));
    dialog_.Press(kUpdate);
    ASSERT_TRUE(dialog_.ShowsInstruction(L"Waiting for the download to start"));
    EXPECT_TRUE(dialog_.Shows([](const auto& shown) { return shown.isMoving; }));
    Start(3);
    ASSERT_TRUE(dialog_.ShowsInstruction(L"A camera is getting its firmware"));
    EXPECT_EQ(dialog_.Last().buttons, (std::vector<FakeTaskDialog::Button>{{2, L"&Hide"}}));
    Number(1);
    EXPECT_TRUE(dialog_.Shows([](const auto& shown) { return shown.percent == 25; }));
    EXPECT_TRUE(dialog_.Shows([](const auto& shown) { return shown.content.starts_with(L"25 % done."); }));
    Number(4);
    Post(DownloadOver{});
    ASSERT_TRUE(dialog_.ShowsInstruction(L"The camera has taken the whole firmware"));
    EXPECT_EQ(dialog_.Last().pages, 4);
    EXPECT_EQ(dialog_.Calls(), 1);
    dialog_.Press(kDismiss);
    EXPECT_TRUE(dialog_.Closes());
}

TEST_F(ConversationThreadTest, WarnsWithWindowsOwnSign) {
    Post(DownloadOver{});
    ASSERT_TRUE(dialog_.ShowsInstruction(L"The download was over before it began"));
    EXPECT_FALSE(dialog_.Last().hasOwnIcon);
    EXPECT_EQ(dialog_.Last().systemIcon, TD_WARNING_ICON);
    EXPECT_EQ(dialog_.Last().footer, L"");
}

TEST_F(ConversationThreadTest, KeepsTheWindowOfTheSameQuestion) {
    Ask();
    ASSERT_TRUE(dialog_.ShowsInstruction(kQuestion));
    Ask();
    Post(Question{L"5.10.1.0", L"5.10.3.0"});
    ASSERT_TRUE(
        dialog_.Shows([](const auto& shown) { return shown.content.ends_with(L"was not answered."); }));
    EXPECT_EQ(dialog_.Last().pages, 2);
    EXPECT_EQ(dialog_.Calls(), 1);
}

TEST_F(ConversationThreadTest, OpensAnotherWindowForTheEndOfAHiddenDownload) {
    Start(9);
    ASSERT_TRUE(dialog_.ShowsInstruction(L"A camera is getting its firmware"));
    dialog_.Press(kDismiss);
    ASSERT_TRUE(dialog_.Closes());
    Post(DownloadOver{});
    EXPECT_TRUE(dialog_.ShowsInstruction(L"The download stopped at 0 %"));
    EXPECT_EQ(dialog_.Calls(), 2);
}

TEST_F(ConversationThreadTest, TakesAQuestionAwayWithItsClient) {
    Ask();
    ASSERT_TRUE(dialog_.ShowsInstruction(kQuestion));
    Post(ClientLeft{});
    EXPECT_TRUE(dialog_.Closes());
    EXPECT_TRUE(BecomesIdle());
}

TEST_F(ConversationThreadTest, EndsWithItsWindowOpen) {
    Ask();
    ASSERT_TRUE(dialog_.ShowsInstruction(kQuestion));
    thread_.reset();
    EXPECT_TRUE(dialog_.Closes());
    EXPECT_EQ(listener_.Heard(), std::vector<std::string>{"asked 5.10.2.0 to 5.10.3.0"});
}

TEST_F(ConversationThreadTest, TakesAWindowThatAnotherClosesForANo) {
    Ask();
    ASSERT_TRUE(dialog_.ShowsInstruction(kQuestion));
    dialog_.Destroy();
    EXPECT_TRUE(BecomesIdle());
    EXPECT_EQ(listener_.Heard(), (std::vector<std::string>{"asked 5.10.2.0 to 5.10.3.0", "answered 0 to 1"}));
}

// Without a screen the conversation goes on; the next event tries again.
TEST_F(ConversationThreadTest, GoesOnWhenNoWindowComesUp) {
    for (const HRESULT result : {E_FAIL, S_OK}) {
        const int before = dialog_.Calls();
        dialog_.Refuse(result);
        Ask();
        EXPECT_TRUE(dialog_.HasRun(before + 1));
        Post(ClientLeft{});
        EXPECT_TRUE(BecomesIdle());
        EXPECT_EQ(listener_.Heard(),
                  (std::vector<std::string>{"asked 5.10.2.0 to 5.10.3.0", "lapsed 5.10.2.0 to 5.10.3.0"}));
    }
    dialog_.Refuse(std::nullopt);
    Ask();
    EXPECT_TRUE(dialog_.ShowsInstruction(kQuestion));
}

TEST_F(ConversationThreadTest, TakesNoMoreThanItHoldsAndNeverWaits) {
    const win32::UniqueKernelHandle released(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    dialog_.Refuse(E_FAIL, [&] { WaitForSingleObject(released.Get(), INFINITE); });
    Ask();
    EXPECT_TRUE(dialog_.HasRun(1));
    std::size_t taken = 0;
    while (taken <= EventInbox::kCapacity && thread_->Post({kService, DownloadOver{}})) {
        ++taken;
    }
    EXPECT_EQ(taken, EventInbox::kCapacity);
    dialog_.Refuse(std::nullopt);
    SetEvent(released.Get());
    EXPECT_TRUE(dialog_.ShowsInstruction(kQuestion));
}

HWND WINAPI NoWindow(DWORD, LPCWSTR, LPCWSTR, DWORD, int, int, int, int, HWND, HMENU, HINSTANCE, LPVOID) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

TEST(ConversationThread, IsNotMadeWithoutAWindowToWakeItBy) {
    const test_support::ImportRedirect window("CreateWindowExW", &NoWindow);
    RecordingListener listener;
    try {
        const ConversationThread thread(listener, Texts(), [](bool) {});
        ADD_FAILURE() << "it was made";
    } catch (const win32::Win32Error& error) {
        EXPECT_EQ(error.Code(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    }
}

}  // namespace
}  // namespace toast
