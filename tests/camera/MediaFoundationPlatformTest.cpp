#include "camera/MediaFoundationPlatform.h"

#include "tests/support/FakeMediaFoundation.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

const std::string kStart = "MFStartup(0x20070, 0)";

class MediaFoundationPlatformTest : public testing::Test {
  protected:
    test_support::FakeMediaFoundation fake_{test_support::FakeMediaFoundation::Platform::NotStarted};
};

TEST_F(MediaFoundationPlatformTest, CallsNothingWhenItIsMadeAndWhenItGoes) {
    std::make_unique<MediaFoundationPlatform>().reset();
    EXPECT_EQ(fake_.Journal().Lines(), Lines{});
}

TEST_F(MediaFoundationPlatformTest, StartsOnceWithThisVersionInFull) {
    MediaFoundationPlatform platform;
    EXPECT_EQ(platform.EnsureStarted(), S_OK);
    EXPECT_EQ(platform.EnsureStarted(), S_OK);
    EXPECT_EQ(fake_.Journal().Lines(), Lines{kStart});
}

TEST_F(MediaFoundationPlatformTest, TellsAFailureAndTriesAgainThen) {
    fake_.FailStartup(1, E_OUTOFMEMORY);
    fake_.FailStartup(2, E_ACCESSDENIED);
    MediaFoundationPlatform platform;
    EXPECT_EQ(platform.EnsureStarted(), E_OUTOFMEMORY);
    EXPECT_EQ(platform.EnsureStarted(), E_ACCESSDENIED);
    EXPECT_EQ(platform.EnsureStarted(), S_OK);
    EXPECT_EQ(platform.EnsureStarted(), S_OK);
    EXPECT_EQ(fake_.Journal().Lines(), (Lines{kStart, kStart, kStart}));
}

}  // namespace
