#include "camera/FirmwareCommandFrame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

std::vector<std::uint8_t> Head(const FirmwareFrame& frame) {
    return {frame.begin(), frame.begin() + 24};
}

TEST(FirmwareCommandFrame, IsLengthMagicOpcodeAndFourParametersInLittleEndianOrder) {
    const FirmwareFrame frame =
        BuildFirmwareFrame(0x04030201, 0x0102, {0x14131211, 0x24232221, 0x34333231, 0x44434241});

    EXPECT_EQ(Head(frame), (std::vector<std::uint8_t>{
                               0x16, 0x01,              // 20 + 0x102
                               0xAB, 0xCD,              //
                               0x01, 0x02, 0x03, 0x04,  //
                               0x11, 0x12, 0x13, 0x14,  //
                               0x21, 0x22, 0x23, 0x24,  //
                               0x31, 0x32, 0x33, 0x34,  //
                               0x41, 0x42, 0x43, 0x44,  //
                           }));
}

TEST(FirmwareCommandFrame, HasAlways1024BytesOfWhichThoseBehindTheParametersAreZero) {
    const FirmwareFrame frame = BuildFirmwareFrame(0xFFFFFFFF, 1000, {~0u, ~0u, ~0u, ~0u});

    EXPECT_EQ(frame.size(), 1024u);
    EXPECT_TRUE(std::all_of(frame.begin() + 24, frame.end(), [](std::uint8_t byte) { return byte == 0; }));
}

TEST(FirmwareCommandFrame, CountsOpcodeParametersAndDataInTheLengthField) {
    const auto length = [](std::size_t dataLength) {
        const FirmwareFrame frame = BuildFirmwareFrame(0, dataLength, {});
        return frame[0] | (frame[1] << 8);
    };

    EXPECT_EQ(length(0), 20);
    EXPECT_EQ(length(1), 21);
    EXPECT_EQ(length(1000), 1020);
    EXPECT_EQ(length(65515), 65535);
}

TEST(FirmwareCommandFrame, TruncatesTheLengthFieldTo16Bits) {
    EXPECT_EQ(Head(BuildFirmwareFrame(0, 65516, {}))[0], 0);
    EXPECT_EQ(Head(BuildFirmwareFrame(0, 65516, {}))[1], 0);
    EXPECT_EQ(Head(BuildFirmwareFrame(0, 0x12345, {}))[0], 0x59);
    EXPECT_EQ(Head(BuildFirmwareFrame(0, 0x12345, {}))[1], 0x23);
}

class FirmwareReply : public ::testing::Test {
  protected:
    FirmwareReply() {
        reply_[0] = 0x01;
        reply_[1] = 0x02;
        reply_[2] = 0x03;
        reply_[3] = 0x04;
    }

    FirmwareFrame reply_{};
};

TEST_F(FirmwareReply, EchoesTheOpcodeInLittleEndianOrder) {
    EXPECT_TRUE(IsReplyTo(reply_, 1024, 0x04030201, 0));
    EXPECT_FALSE(IsReplyTo(reply_, 1024, 0x01020304, 0));
}

TEST_F(FirmwareReply, MayDifferInNoByteOfTheEcho) {
    EXPECT_FALSE(IsReplyTo(reply_, 1024, 0x04030200, 0));
    EXPECT_FALSE(IsReplyTo(reply_, 1024, 0x04030001, 0));
    EXPECT_FALSE(IsReplyTo(reply_, 1024, 0x04000201, 0));
    EXPECT_FALSE(IsReplyTo(reply_, 1024, 0x00030201, 0));
}

TEST_F(FirmwareReply, NeedsTheFourBytesOfTheEchoAndAllTheData) {
    EXPECT_FALSE(IsReplyTo(reply_, 0, 0x04030201, 0));
    EXPECT_FALSE(IsReplyTo(reply_, 3, 0x04030201, 0));
    EXPECT_TRUE(IsReplyTo(reply_, 4, 0x04030201, 0));
    EXPECT_FALSE(IsReplyTo(reply_, 4, 0x04030201, 1));
    EXPECT_TRUE(IsReplyTo(reply_, 5, 0x04030201, 1));
    EXPECT_FALSE(IsReplyTo(reply_, 1023, 0x04030201, 1020));
    EXPECT_TRUE(IsReplyTo(reply_, 1024, 0x04030201, 1020));
}

}  // namespace
