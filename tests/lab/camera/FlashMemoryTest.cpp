#include "lab/camera/FlashMemory.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::array<std::uint8_t, 4> kVersion{5, 10, 2, 0};

TEST(FlashMemory, PowerFailureEndsTheImage) {
    FlashMemory flash(kVersion);
    flash.BeginImage();
    flash.AppendToImage(Bytes{1, 2, 3});
    flash.LosePower();

    flash.CommitImage();

    EXPECT_FALSE(flash.IsValid());
    EXPECT_EQ(flash.Bytes().size(), 4096U);
}

TEST(FlashMemory, PowerFailureWithoutAnImageIsHarmless) {
    FlashMemory flash(kVersion);
    const Bytes before = flash.Bytes();
    flash.LosePower();
    EXPECT_TRUE(flash.IsValid());
    EXPECT_EQ(flash.Bytes(), before);
}

TEST(FlashMemory, CommittingAnImageMakesItValidAgain) {
    FlashMemory flash(kVersion);
    flash.BeginImage();
    flash.LosePower();
    ASSERT_FALSE(flash.IsValid());
    flash.BeginImage();
    flash.AppendToImage(Bytes{1, 2});
    flash.AppendToImage(Bytes{3});
    flash.CommitImage();
    EXPECT_TRUE(flash.IsValid());
    EXPECT_EQ(flash.Bytes(), (Bytes{1, 2, 3}));
}

TEST(FlashMemory, DoesNothingWithoutAnImageThatWasBegun) {
    FlashMemory flash(kVersion);
    const Bytes before = flash.Bytes();
    flash.AppendToImage(Bytes{1, 2, 3});
    flash.CommitImage();
    flash.BeginImage();
    flash.AppendToImage(Bytes{1, 2, 3});
    flash.DiscardImage();
    flash.CommitImage();
    EXPECT_EQ(flash.Bytes(), before);
    EXPECT_TRUE(flash.IsValid());
}

}  // namespace
}  // namespace lab::test
