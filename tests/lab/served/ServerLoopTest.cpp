#include "lab/served/ServerLoop.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lab::test {
namespace {

using Words = std::vector<std::string>;

// Tells what it is asked.
class Member : public LoopMember {
  public:
    Member(std::string name, Words& told) : name_(std::move(name)), told_(told) {}
    ~Member() override { told_.push_back(name_ + " ends"); }

    SocketHandle Handle() const override { return socket ? socket->Handle() : kNoSocket; }
    bool Serve(std::uint64_t) override {
        told_.push_back(name_ + " serves");
        return serves;
    }
    bool KeepUp(std::uint64_t nowMs) override {
        told_.push_back(name_ + " at " + std::to_string(nowMs));
        whenKeptUp();
        return keepsUp;
    }
    std::optional<std::uint64_t> NextDeadline() const override { return deadline; }

    const Socket* socket = nullptr;
    bool serves = true;
    bool keepsUp = true;
    std::optional<std::uint64_t> deadline;
    std::function<void()> whenKeptUp = [] {};

  private:
    std::string name_;
    Words& told_;
};

class ServerLoopTest : public testing::Test {
  protected:
    Member& Add(const std::string& name) {
        auto member = std::make_unique<Member>(name, told_);
        Member& added = *member;
        loop_.Add(std::move(member));
        return added;
    }

    std::uint64_t nowMs_ = 7;
    Words told_;
    ServerLoop loop_{[this] { return nowMs_; }};
};

TEST_F(ServerLoopTest, LetsAllKeepUpInTheirOrder) {
    Add("one");
    Add("two");
    loop_.RunOnce(0);
    EXPECT_EQ(told_, (Words{"one at 7", "two at 7"}));
}

TEST_F(ServerLoopTest, TakesOutWhoeverEnds) {
    Add("one").keepsUp = false;
    Add("two");
    loop_.RunOnce(0);
    EXPECT_EQ(told_, (Words{"one at 7", "one ends", "two at 7"}));
    EXPECT_EQ(loop_.Members(), 1U);
}

TEST_F(ServerLoopTest, ServesWhomSomebodyCallsFirst) {
    const Socket listener = Socket::Listen("tcp:127.0.0.1:0");
    Add("one");
    Member& two = Add("two");
    two.socket = &listener;
    two.serves = false;
    loop_.RunOnce(0);
    EXPECT_EQ(told_, (Words{"one at 7", "two at 7"}));
    told_.clear();
    const Socket caller = Socket::Connect("tcp:127.0.0.1:" + std::to_string(listener.Port()));
    loop_.RunOnce(10'000);
    EXPECT_EQ(told_, (Words{"two serves", "two ends", "one at 7"}));
}

TEST_F(ServerLoopTest, DoesNotWaitForWhatIsDue) {
    Add("one").deadline = 7;
    loop_.RunOnce(3'600'000);
    EXPECT_EQ(told_, Words{"one at 7"});
}

TEST_F(ServerLoopTest, AMemberMayBringAnother) {
    Member& one = Add("one");
    one.whenKeptUp = [this] { loop_.Add(std::make_unique<Member>("two", told_)); };
    loop_.RunOnce(0);
    EXPECT_EQ(told_, Words{"one at 7"});
    EXPECT_EQ(loop_.Members(), 2U);
}

}  // namespace
}  // namespace lab::test
