#include "dfu/DfuFunctionalDescriptor.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace dfu {
namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kHeader{9, 2, 27, 0, 1, 1, 0, 0x80, 50};
const Bytes kInterface{9, 4, 0, 0, 0, 0xFE, 1, 2, 0};
const Bytes kFunctional{9, 0x21, 0x0B, 0xE8, 0x03, 0x34, 0x12, 0x10, 0x01};

Bytes Join(const std::vector<Bytes>& parts) {
    Bytes joined;
    for (const Bytes& part : parts) {
        joined.insert(joined.end(), part.begin(), part.end());
    }
    return joined;
}

TEST(DfuFunctionalDescriptor, LiesInMemoryAsItComesFromTheDevice) {
    DfuFunctionalDescriptor descriptor{};
    ASSERT_EQ(sizeof descriptor, 9U);
    std::memcpy(&descriptor, kFunctional.data(), sizeof descriptor);
    EXPECT_EQ(descriptor.bLength, 9);
    EXPECT_EQ(descriptor.bDescriptorType, 0x21);
    EXPECT_EQ(descriptor.bmAttributes, 0x0B);
    EXPECT_EQ(std::uint16_t{descriptor.wDetachTimeOut}, 0x03E8);
    EXPECT_EQ(std::uint16_t{descriptor.wTransferSize}, 0x1234);
    EXPECT_EQ(std::uint16_t{descriptor.bcdDFUVersion}, 0x0110);
}

TEST(FindDfuFunctionalDescriptor, ReadsEveryFieldOfTheDescriptor) {
    const auto found = FindDfuFunctionalDescriptor(Join({kHeader, kInterface, kFunctional}));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->bLength, 9);
    EXPECT_EQ(found->bDescriptorType, 0x21);
    EXPECT_EQ(found->bmAttributes, 0x0B);
    EXPECT_EQ(std::uint16_t{found->wDetachTimeOut}, 0x03E8);
    EXPECT_EQ(std::uint16_t{found->wTransferSize}, 0x1234);
    EXPECT_EQ(std::uint16_t{found->bcdDFUVersion}, 0x0110);
}

TEST(FindDfuFunctionalDescriptor, TakesTheFirstOfSeveral) {
    Bytes second = kFunctional;
    second[5] = 0xFF;
    const auto found = FindDfuFunctionalDescriptor(Join({kHeader, kFunctional, second}));
    ASSERT_TRUE(found);
    EXPECT_EQ(std::uint16_t{found->wTransferSize}, 0x1234);
}

TEST(FindDfuFunctionalDescriptor, PassesOverOtherLengthsAndOtherTypes) {
    const Bytes dfu10{7, 0x21, 0x01, 0xE8, 0x03, 0xFF, 0xFF};  // the descriptor of DFU 1.0
    const Bytes longer{10, 0x21, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0};
    const Bytes otherType{9, 0x22, 0, 0, 0, 0xFF, 0xFF, 0, 0};
    EXPECT_FALSE(FindDfuFunctionalDescriptor(Join({kHeader, dfu10, longer, otherType})));
    const auto found = FindDfuFunctionalDescriptor(Join({kHeader, dfu10, longer, otherType, kFunctional}));
    ASSERT_TRUE(found);
    EXPECT_EQ(std::uint16_t{found->wTransferSize}, 0x1234);
}

// The bytes of a functional descriptor inside another descriptor are that one's data.
TEST(FindDfuFunctionalDescriptor, WalksByLengthAndDoesNotSearch) {
    Bytes wrapper{11, 0x24};
    wrapper.insert(wrapper.end(), kFunctional.begin(), kFunctional.end());
    EXPECT_FALSE(FindDfuFunctionalDescriptor(Join({kHeader, wrapper})));
}

TEST(FindDfuFunctionalDescriptor, EndsAtADescriptorOfLengthZero) {
    EXPECT_FALSE(FindDfuFunctionalDescriptor(Join({kHeader, {0, 4}, kFunctional})));
}

TEST(FindDfuFunctionalDescriptor, PassesOverADescriptorOfLengthOne) {
    EXPECT_TRUE(FindDfuFunctionalDescriptor(Join({kHeader, {1}, kFunctional})));
    EXPECT_FALSE(FindDfuFunctionalDescriptor(Join({kHeader, {1}})));
}

TEST(FindDfuFunctionalDescriptor, EndsAtADescriptorThatReachesBeyondWhatWasRead) {
    EXPECT_FALSE(FindDfuFunctionalDescriptor(Join({kHeader, {19, 4, 0, 0, 0, 0, 0, 0, 0}, kFunctional})));
}

TEST(FindDfuFunctionalDescriptor, DoesNotTakeATruncatedDescriptor) {
    Bytes configuration = Join({kHeader, kFunctional});
    configuration.pop_back();
    EXPECT_FALSE(FindDfuFunctionalDescriptor(configuration));
    configuration.resize(kHeader.size() + 1);
    EXPECT_FALSE(FindDfuFunctionalDescriptor(configuration));
}

TEST(FindDfuFunctionalDescriptor, FindsOneThatEndsWithTheConfiguration) {
    EXPECT_TRUE(FindDfuFunctionalDescriptor(kFunctional));
}

TEST(FindDfuFunctionalDescriptor, FindsNothingInNothing) {
    EXPECT_FALSE(FindDfuFunctionalDescriptor({}));
}

}  // namespace
}  // namespace dfu
