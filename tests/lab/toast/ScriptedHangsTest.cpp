#include "lab/toast/ScriptedHangs.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

namespace lab::toast {
namespace {

using namespace std::chrono_literals;

// How long a call that nothing holds may take on a busy machine.
constexpr auto kPatience = 20s;

class ScriptedHangsTest : public testing::Test {
  protected:
    std::future<void> Call(const char* method) {
        return std::async(std::launch::async, [this, method] { hangs_.Pass(method); });
    }

    static bool IsOver(const std::future<void>& call, std::chrono::milliseconds patience) {
        return call.wait_for(patience) == std::future_status::ready;
    }

    ScriptedHangs hangs_;
};

TEST_F(ScriptedHangsTest, LetsCallsPassThatNobodyWantsToHang) {
    hangs_.Set("NotifyComplete", 0, 0ms);
    EXPECT_TRUE(IsOver(Call("NotifyProgress"), kPatience));
    hangs_.Release();
    EXPECT_TRUE(IsOver(Call("NotifyComplete"), kPatience));
}

TEST_F(ScriptedHangsTest, HoldsTheCallBehindThoseThatAreSkippedUntilItIsReleased) {
    hangs_.Set("NotifyProgress", 2, 0ms);
    EXPECT_TRUE(IsOver(Call("NotifyProgress"), kPatience));
    EXPECT_TRUE(IsOver(Call("NotifyProgress"), kPatience));
    const std::future<void> third = Call("NotifyProgress");
    EXPECT_FALSE(IsOver(third, 200ms));
    EXPECT_TRUE(IsOver(Call("NotifyProgress"), kPatience));
    hangs_.Release();
    EXPECT_TRUE(IsOver(third, kPatience));
}

TEST_F(ScriptedHangsTest, HoldsACallForItsTimeOnly) {
    hangs_.Set("NotifyProgress", 0, 1s);
    const std::future<void> call = Call("NotifyProgress");
    EXPECT_FALSE(IsOver(call, 50ms));
    EXPECT_TRUE(IsOver(call, kPatience));
}

}  // namespace
}  // namespace lab::toast
