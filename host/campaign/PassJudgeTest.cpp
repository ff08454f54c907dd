#include "host/campaign/BrokenRule.h"
#include "host/campaign/PassJudge.h"
#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace campaign {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr auto kFail = static_cast<std::int32_t>(0x80004005);
constexpr const char* kResult = "a command succeeds when its reply echoes it, and fails as its requests do";

class PassJudgeTest : public testing::Test {
  protected:
    void Write(std::uint64_t pauseMs, const Bytes& frame, std::int32_t result = 0) {
        time_.Advance(pauseMs);
        judge_.OnCrossing({.what = Crossing::What::CommandWrite,
                           .beganMs = time_.Now(),
                           .endedMs = time_.Now(),
                           .before = frame,
                           .after = frame,
                           .transferred = frame.size(),
                           .result = result});
    }
    void Read(std::uint64_t pauseMs, const Bytes& reply, std::size_t transferred = 1024) {
        time_.Advance(pauseMs);
        const Bytes before(1024);
        judge_.OnCrossing({.what = Crossing::What::CommandRead,
                           .beganMs = time_.Now(),
                           .endedMs = time_.Now(),
                           .before = before,
                           .after = reply,
                           .transferred = transferred});
    }
    static Bytes Reply(std::uint8_t echo) {
        Bytes reply(1024);
        reply[0] = echo;
        reply[16] = 4;
        reply[19] = 1;
        return reply;
    }
    template <typename Act>
    static std::string Broken(const Act& act) {
        try {
            act();
        } catch (const BrokenRule& rule) {
            return rule.what();
        }
        return "";
    }

    const Bytes kAsk = lab::test::MakeFrame(0x10);
    const Bytes kSwitch = lab::test::MakeFrame(0x1E, {1, 0, 0, 0});
    VirtualTime time_;
    PassJudge judge_{time_};
};

TEST_F(PassJudgeTest, KnowsTheVersionThatWasTold) {
    judge_.BeginReading();
    Write(0, kAsk);
    Read(100, Reply(0x10));
    EXPECT_EQ(judge_.EndReading(), (std::array<std::uint8_t, 4>{4, 0, 0, 1}));
}

TEST_F(PassJudgeTest, WantsFiveAttemptsAtWhateverFails) {
    judge_.BeginReading();
    Write(0, kAsk, -1);
    Write(500, kAsk);
    Read(100, Reply(0x11));
    Write(500, kAsk);
    Read(100, Reply(0x10), 233);
    Write(500, kAsk, -1);
    EXPECT_EQ(Broken([this] { static_cast<void>(judge_.EndReading()); }),
              "the version is asked for until it is told, or five times");
    Write(500, kAsk, -1);
    EXPECT_EQ(judge_.EndReading(), std::nullopt);
    EXPECT_EQ(Broken([this] { Write(0, kAsk); }),
              "a running camera is asked for its version and sent into DFU mode, nothing else");
}

TEST_F(PassJudgeTest, FindsWhatComesTooEarlyOrIsAnother) {
    judge_.BeginReading();
    EXPECT_EQ(Broken([this] { Write(0, kSwitch); }), "the information block is asked for by its frame");
    judge_.BeginReading();
    Write(0, kAsk);
    EXPECT_EQ(Broken([this] { Read(99, Reply(0x10)); }), "a running camera is asked when its time has come");
    judge_.BeginReading();
    Write(0, kAsk);
    EXPECT_EQ(Broken([this] { Write(100, kAsk); }), "the whole control is read back");
    judge_.BeginReading();
    Write(0, kAsk);
    Read(100, Reply(0x10));
    time_.Advance(1);
    EXPECT_EQ(Broken([this] { static_cast<void>(judge_.EndReading()); }),
              "nobody waits behind the last attempt");
}

TEST_F(PassJudgeTest, WantsTheSwitchAndTheReadOfItsReply) {
    judge_.BeginSwitch();
    Write(0, kSwitch);
    EXPECT_EQ(Broken([this] { judge_.EndSwitch(0); }),
              "the command into DFU mode is sent, and its reply is read");
    Read(0, Reply(0x1E), 4);
    EXPECT_EQ(Broken([this] { judge_.EndSwitch(0); }), "");
    EXPECT_EQ(Broken([this] { judge_.EndSwitch(kFail); }), kResult);
    time_.Advance(1);
    EXPECT_EQ(Broken([this] { judge_.EndSwitch(0); }), "nobody waits behind the command into DFU mode");
    judge_.BeginSwitch();
    EXPECT_EQ(Broken([this] { Write(0, kAsk); }), "the command into DFU mode has its frame");
    judge_.BeginSwitch();
    Write(0, kSwitch, -1);
    EXPECT_EQ(Broken([this] { judge_.EndSwitch(-1); }), "");
    EXPECT_EQ(Broken([this] { judge_.EndSwitch(0); }), kResult);
}

TEST_F(PassJudgeTest, WantsTheSwitchToFailWhenItsReplyIsShortOrAnothers) {
    for (const auto& [echo, transferred] : {std::pair<int, std::size_t>{0x1E, 3}, {0x1E, 0}, {0x10, 1024}}) {
        judge_.BeginSwitch();
        Write(0, kSwitch);
        Read(0, Reply(static_cast<std::uint8_t>(echo)), transferred);
        EXPECT_EQ(Broken([this] { judge_.EndSwitch(kFail); }), "");
        EXPECT_EQ(Broken([this] { judge_.EndSwitch(0); }), kResult);
    }
}

}  // namespace
}  // namespace campaign
