#include "lab/camera/FlashMemory.h"

#include <gtest/gtest.h>

#include "lab/camera/Checksum.h"

#include <algorithm>
#include <array>
#include <string_view>
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

// What the flash held at first.
Bytes OldContent() {
    return FlashMemory(kVersion).Bytes();
}

Bytes Image(std::size_t size) {
    Bytes image(size);
    for (std::size_t offset = 0; offset < size; ++offset) {
        image[offset] = static_cast<std::uint8_t>(offset % 250 + 1);
    }
    return image;
}

void Download(FlashMemory& flash, const Bytes& image) {
    flash.BeginImage();
    for (std::size_t offset = 0; offset < image.size(); offset += 1024) {
        const std::size_t length = std::min<std::size_t>(1024, image.size() - offset);
        flash.AppendToImage(std::span(image).subspan(offset, length));
    }
}

FlashSettings CutAt(Fault::Where where, unsigned skip, Fault::Moment moment, FlashSettings settings = {}) {
    settings.faults = {{.where = where, .what = Fault::What::Unplug, .skip = skip, .moment = moment}};
    return settings;
}

TEST(Checksum, IsTheOneOfZip) {
    constexpr std::string_view kDigits = "123456789";
    EXPECT_EQ(Checksum(Bytes(kDigits.begin(), kDigits.end())), 0xCBF4'3926U);
    EXPECT_EQ(Checksum({}), 0U);
}

TEST(FlashMemory, PowerGoneBeforeAPageIsErasedLeavesThatPage) {
    // The first erasure is that of the record, the second that of page 0.
    FlashMemory flash(kVersion, CutAt(Fault::Where::FlashErase, 2, Fault::Moment::Before));
    Download(flash, Image(5000));
    EXPECT_TRUE(flash.HasLostPower());
    flash.LosePower();
    Bytes expected = OldContent();
    std::copy_n(Image(5000).begin(), 1024, expected.begin());
    EXPECT_EQ(flash.Bytes(), expected);
    EXPECT_FALSE(flash.IsValid());
    EXPECT_FALSE(flash.HasLostPower());
}

TEST(FlashMemory, PowerGoneInTheMiddleOfAnErasureHasErasedHalfThePage) {
    FlashMemory flash(kVersion, CutAt(Fault::Where::FlashErase, 1, Fault::Moment::Middle));
    Download(flash, Image(5000));
    flash.LosePower();
    Bytes expected = OldContent();
    std::fill_n(expected.begin(), 512, std::uint8_t{0xFF});
    EXPECT_EQ(flash.Bytes(), expected);
}

TEST(FlashMemory, PowerGoneInTheMiddleOfAWritingLeavesTheRestOfThePageErased) {
    FlashMemory flash(kVersion, CutAt(Fault::Where::FlashWrite, 0, Fault::Moment::Middle));
    Download(flash, Image(5000));
    flash.LosePower();
    Bytes expected = OldContent();
    std::fill_n(expected.begin(), 1024, std::uint8_t{0xFF});
    std::copy_n(Image(5000).begin(), 512, expected.begin());
    EXPECT_EQ(flash.Bytes(), expected);
}

TEST(FlashMemory, PowerGoneAfterAWritingHasWrittenThePageAndNoMore) {
    FlashMemory flash(kVersion, CutAt(Fault::Where::FlashWrite, 0, Fault::Moment::After));
    Download(flash, Image(5000));
    flash.CommitImage();
    flash.LosePower();
    Bytes expected = OldContent();
    std::copy_n(Image(5000).begin(), 1024, expected.begin());
    EXPECT_EQ(flash.Bytes(), expected);
    EXPECT_FALSE(flash.IsValid());
}

TEST(FlashMemory, AnImageIsValidOnceItsRecordIsWrittenWhole) {
    for (const auto& [moment, isValid] :
         {std::pair{Fault::Moment::Before, false}, std::pair{Fault::Moment::Middle, false},
          std::pair{Fault::Moment::After, true}}) {
        // Five pages come first.
        FlashMemory flash(kVersion, CutAt(Fault::Where::FlashWrite, 5, moment));
        Download(flash, Image(5000));
        EXPECT_FALSE(flash.HasLostPower());
        flash.CommitImage();
        EXPECT_TRUE(flash.HasLostPower());
        flash.LosePower();
        EXPECT_EQ(flash.Bytes(), Image(5000));
        EXPECT_EQ(flash.IsValid(), isValid);
    }
}

TEST(FlashMemory, WhatIsGivenUpIsPutBackPageByPage) {
    FlashMemory flash(kVersion);
    Download(flash, Image(5000));
    EXPECT_EQ(flash.Bytes(), OldContent());
    EXPECT_FALSE(flash.IsValid());
    flash.DiscardImage();
    EXPECT_EQ(flash.Bytes(), OldContent());
    EXPECT_TRUE(flash.IsValid());
}

TEST(FlashMemory, PowerMayGoWhileItIsPutBack) {
    // Record, five pages; then the first page again.
    FlashMemory flash(kVersion, CutAt(Fault::Where::FlashErase, 7, Fault::Moment::Before));
    Download(flash, Image(5000));
    flash.DiscardImage();
    EXPECT_TRUE(flash.HasLostPower());
    flash.LosePower();
    Bytes expected = Image(5000);
    std::copy_n(OldContent().begin(), 1024, expected.begin());
    EXPECT_EQ(flash.Bytes(), expected);
    EXPECT_FALSE(flash.IsValid());
}

TEST(FlashMemory, OneThatPutsNothingBackShowsWhatItHolds) {
    FlashMemory flash(kVersion, {.putsBack = false});
    Download(flash, Image(5000));
    EXPECT_EQ(flash.Bytes(), Image(5000));
    flash.DiscardImage();
    EXPECT_EQ(flash.Bytes(), Image(5000));
    EXPECT_FALSE(flash.IsValid());
}

TEST(FlashMemory, APageThatABlockFillsInPartKeepsTheRest) {
    FlashMemory flash(kVersion, {.pageSize = 4096});
    flash.BeginImage();
    flash.AppendToImage(Bytes(10, 1));
    flash.AppendToImage(Bytes(10, 2));
    flash.LosePower();
    Bytes expected = OldContent();
    std::fill_n(expected.begin(), 10, std::uint8_t{1});
    std::fill_n(expected.begin() + 10, 10, std::uint8_t{2});
    EXPECT_EQ(flash.Bytes(), expected);
}

TEST(FlashMemory, ABlockThatReachesOverPagesTakesEachOfThem) {
    for (unsigned pages = 0; pages < 3; ++pages) {
        FlashMemory flash(kVersion,
                          CutAt(Fault::Where::FlashWrite, pages, Fault::Moment::Before, {.pageSize = 1000}));
        flash.BeginImage();
        flash.AppendToImage(Image(3000));
        flash.LosePower();
        const Bytes image = Image(3000);
        EXPECT_TRUE(std::equal(image.begin(), image.begin() + 1000 * static_cast<std::ptrdiff_t>(pages),
                               flash.Bytes().begin()));
        EXPECT_EQ(flash.Bytes()[1000 * pages], 0xFF);
    }
}

TEST(FlashMemory, WithTwoBanksTheOneThatWasInUseStartsUntilTheRecordIsWritten) {
    for (unsigned written = 0; written < 6; ++written) {
        for (const auto moment : {Fault::Moment::Before, Fault::Moment::Middle}) {
            FlashMemory flash(kVersion,
                              CutAt(Fault::Where::FlashWrite, written, moment, {.hasTwoBanks = true}));
            Download(flash, Image(5000));
            flash.CommitImage();
            flash.LosePower();
            EXPECT_TRUE(flash.IsValid());
            EXPECT_EQ(flash.Bytes(), OldContent());
        }
    }
}

TEST(FlashMemory, CountsItsPageOperations) {
    FlashMemory flash(kVersion);
    EXPECT_EQ(flash.Operations().erased + flash.Operations().written, 0U);
    Download(flash, Image(5000));
    flash.CommitImage();
    // The record and five pages.
    EXPECT_EQ(flash.Operations().erased, 6U);
    EXPECT_EQ(flash.Operations().written, 6U);
}

TEST(FlashMemory, WithTwoBanksDownloadsTakeTurns) {
    FlashMemory flash(kVersion, {.hasTwoBanks = true});
    for (const std::size_t size : {5000U, 300U, 7000U}) {
        Download(flash, Image(size));
        flash.CommitImage();
        flash.LosePower();
        EXPECT_EQ(flash.Bytes(), Image(size));
        EXPECT_TRUE(flash.IsValid());
    }
    Download(flash, Image(100));
    flash.LosePower();
    EXPECT_EQ(flash.Bytes(), Image(7000));
}

TEST(FlashMemory, ABootLoaderThatLooksAtTheFirstPageStartsHalfAnImage) {
    for (const bool hasTwoBanks : {false, true}) {
        FlashMemory flash(kVersion,
                          {.hasTwoBanks = hasTwoBanks, .bootCheck = DfuTraits::BootCheck::FirstPage});
        flash.BeginImage();
        flash.AppendToImage(Image(1024));
        flash.LosePower();
        EXPECT_TRUE(flash.IsValid());
        EXPECT_NE(flash.Bytes(), OldContent());
        EXPECT_NE(flash.Bytes(), Image(5000));
    }
}

TEST(FlashMemory, ABootLoaderThatLooksAtTheFirstPageFindsNothingInAnErasedOne) {
    FlashMemory flash(kVersion, CutAt(Fault::Where::FlashWrite, 0, Fault::Moment::Before,
                                      {.bootCheck = DfuTraits::BootCheck::FirstPage}));
    Download(flash, Image(5000));
    flash.LosePower();
    EXPECT_FALSE(flash.IsValid());
}

TEST(FlashMemory, ABootLoaderThatLooksAtTheFirstPageGoesByTheCellsOfItsFirstHalf) {
    const DfuTraits::BootCheck firstPage = DfuTraits::BootCheck::FirstPage;
    FlashMemory torn(kVersion,
                     CutAt(Fault::Where::FlashErase, 0, Fault::Moment::Middle, {.bootCheck = firstPage}));
    Download(torn, Image(5000));
    torn.LosePower();
    EXPECT_EQ(torn.Bytes()[600], OldContent()[600]);
    EXPECT_FALSE(torn.IsValid());

    std::vector<std::uint8_t> image = Image(5000);
    std::fill_n(image.begin(), 512, std::uint8_t{0xFF});
    FlashMemory blank(kVersion, {.bootCheck = firstPage});
    Download(blank, image);
    EXPECT_FALSE(blank.IsValid());
}

TEST(FlashMemory, OfASecondBankThatIsGivenUpNothingIsStarted) {
    FlashMemory flash(kVersion, {.hasTwoBanks = true, .bootCheck = DfuTraits::BootCheck::FirstPage});
    Download(flash, Image(5000));
    flash.DiscardImage();
    flash.LosePower();
    EXPECT_EQ(flash.Bytes(), OldContent());
}

}  // namespace
}  // namespace lab::test
