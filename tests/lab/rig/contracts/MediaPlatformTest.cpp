#include "lab/rig/contracts/MediaPlatform.h"

#include <gtest/gtest.h>

#include "tests/lab/rig/contracts/ToldBreaches.h"

using namespace lab::rig;

namespace {

using Strings = std::vector<std::string>;

constexpr HRESULT kNotInitialized = static_cast<HRESULT>(0xC00D36B0);
constexpr char kBreach[] = "Media Foundation is used between MFStartup and MFShutdown: MFEnumDeviceSources";

class MediaPlatformTest : public testing::Test {
  protected:
    ToldBreaches breaches_;
    MediaPlatform platform_{breaches_.Report()};
};

TEST_F(MediaPlatformTest, RefusesWhatComesBeforeItsStart) {
    EXPECT_EQ(platform_.Check("MFEnumDeviceSources"), kNotInitialized);
    EXPECT_EQ(breaches_.Take(), Strings{kBreach});
    platform_.Started(true);
    EXPECT_EQ(platform_.Check("MFEnumDeviceSources"), S_OK);
    EXPECT_EQ(breaches_.Take(), Strings{});
}

TEST_F(MediaPlatformTest, IsUpUntilEachStartHadItsShutdown) {
    platform_.Started(true);
    platform_.Started(true);
    platform_.ShutDown();
    EXPECT_EQ(platform_.Check("MFEnumDeviceSources"), S_OK);
    platform_.ShutDown();
    EXPECT_EQ(platform_.Check("MFEnumDeviceSources"), kNotInitialized);
    platform_.ShutDown();
    platform_.Started(true);
    EXPECT_EQ(platform_.Check("MFEnumDeviceSources"), S_OK);
    EXPECT_EQ(breaches_.Take(), Strings{kBreach});
}

TEST_F(MediaPlatformTest, TellsAStartOutsideOfAPass) {
    platform_.Started(false);
    EXPECT_EQ(breaches_.Take(),
              Strings{"MFStartup is called by a pass, and never by a static constructor: MFStartup"});
    EXPECT_EQ(platform_.Check("MFEnumDeviceSources"), S_OK);
}

TEST_F(MediaPlatformTest, FailsAsOftenAsItWasTold) {
    EXPECT_FALSE(platform_.TakeFailure());
    platform_.FailStarts(2);
    EXPECT_TRUE(platform_.TakeFailure());
    EXPECT_TRUE(platform_.TakeFailure());
    EXPECT_FALSE(platform_.TakeFailure());
}

}  // namespace
