#include "lab/camera/DescriptorWriter.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(DescriptorWriter, CountsEachDescriptor) {
    DescriptorWriter writer;
    writer.Begin(DescriptorType::Interface).Bytes({1, 2, 3});
    writer.Begin(DescriptorType::Endpoint).Word(0x1234).Long(0x89ABCDEF);
    EXPECT_EQ(writer.Finish(), (Bytes{5, 4, 1, 2, 3, 8, 5, 0x34, 0x12, 0xEF, 0xCD, 0xAB, 0x89}));
}

TEST(DescriptorWriter, WritesTextInUtf16) {
    EXPECT_EQ(DescriptorWriter().Begin(DescriptorType::String).Text(u"A\u20AC").Finish(),
              (Bytes{6, 3, 'A', 0, 0xAC, 0x20}));
}

TEST(DescriptorWriter, ATotalCountsItsOwnDescriptorAndThoseBehindIt) {
    DescriptorWriter writer;
    writer.Begin(DescriptorType::Interface);
    writer.Begin(DescriptorType::Configuration).OpenTotal().Byte(7);
    writer.Begin(DescriptorType::Endpoint);
    EXPECT_EQ(writer.Finish(), (Bytes{2, 4, 5, 2, 7, 0, 7, 2, 5}));
}

TEST(DescriptorWriter, TotalsNest) {
    DescriptorWriter writer;
    writer.Begin(DescriptorType::Configuration).OpenTotal();
    writer.Begin(DescriptorType::ClassSpecificInterface).OpenTotal();
    writer.Begin(DescriptorType::ClassSpecificInterface).CloseTotal();
    writer.Begin(DescriptorType::Interface);
    EXPECT_EQ(writer.Finish(), (Bytes{4, 2, 12, 0, 4, 0x24, 6, 0, 2, 0x24, 2, 4}));
}

TEST(DescriptorWriter, WideDescriptorsHaveALengthOfTwoBytes) {
    DescriptorWriter writer;
    writer.BeginWide(0x0102).Bytes(Bytes(300, 9));
    const Bytes written = writer.Finish();
    ASSERT_EQ(written.size(), 304U);
    EXPECT_EQ(Bytes(written.begin(), written.begin() + 5), (Bytes{0x30, 0x01, 0x02, 0x01, 9}));
}

TEST(DescriptorWriter, RefusesALengthThatItsFieldCannotHold) {
    DescriptorWriter longest;
    longest.Begin(DescriptorType::String).Bytes(Bytes(253, 0));
    EXPECT_EQ(longest.Finish().size(), 255U);

    DescriptorWriter tooLong;
    tooLong.Begin(DescriptorType::String).Bytes(Bytes(254, 0));
    EXPECT_THROW(tooLong.Begin(DescriptorType::String), std::length_error);

    DescriptorWriter tooMuch;
    tooMuch.BeginWide(0).OpenTotal().Bytes(Bytes(65'530, 0));
    EXPECT_THROW(static_cast<void>(tooMuch.Finish()), std::length_error);
}

TEST(DescriptorWriter, LeavesPlainBytesAlone) {
    EXPECT_EQ(DescriptorWriter().Word(0x0102).Byte(3).Finish(), (Bytes{2, 1, 3}));
}

TEST(DescriptorWriter, BeginsAnewWhenItHasFinished) {
    DescriptorWriter writer;
    writer.Begin(DescriptorType::Interface);
    EXPECT_EQ(writer.Finish(), (Bytes{2, 4}));
    EXPECT_EQ(writer.Finish(), Bytes{});
    EXPECT_EQ(writer.Begin(DescriptorType::Endpoint).Finish(), (Bytes{2, 5}));
}

}  // namespace
}  // namespace lab::test
