#include "check/TraceFormats.h"

#include <gtest/gtest.h>

namespace {

using check::TraceFormats;
using Bytes = std::vector<std::uint8_t>;

constexpr const char* kGroup = "fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1";
constexpr const char* kFile = R"(// Trace messages of a test.
FBFBAA6B-fcbc-3745-ac1c-e104c7b6cda1 FDUService // SRC=FDUService.cpp MJ= MN=
#typev FDUService_10 10 "%0Nothing to say" // LEVEL=4 FLAGS=1
{
}
#typev FDUService_11 11 "%0It failed (%10!s!) with "%11!d!" // two" // LEVEL=2 FLAGS=1
{
Status, ItemHRESULT -- 10
Error, ItemLong -- 11
}
#typev FDUService_23 23 "%0The version is %10!s!" // LEVEL=4 FLAGS=1
{
Version, ItemString -- 10
}
#typev FDUService_12 12 "%0%10!d! %11!x!" // LEVEL=4 FLAGS=1
{
Short, ItemShort -- 10
Wide, ItemULongLongX -- 11
}
#typev FDUService_24 24 "%0%10!s! and %11!s!" // LEVEL=4 FLAGS=1
{
Label, ItemWString -- 10
Value, ItemULongLong -- 11
}
)";

Bytes BytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

class TraceFormatsTest : public ::testing::Test {
  protected:
    TraceFormatsTest() { formats_.Read(kFile); }

    [[nodiscard]] std::string TextOf(unsigned number, const Bytes& payload) const {
        return formats_.Text(kGroup, number, payload);
    }

    TraceFormats formats_;
};

}  // namespace

TEST_F(TraceFormatsTest, KnowsEachMessageAndItsGroup) {
    EXPECT_EQ(formats_.Count(), 5U);
    EXPECT_EQ(formats_.NameOf(kGroup), "FDUService");
    EXPECT_EQ(formats_.NameOf("another"), "another");
    EXPECT_EQ(TextOf(10, {}), "Nothing to say");
}

TEST_F(TraceFormatsTest, PutsArgumentsIntoTheirPlaces) {
    EXPECT_EQ(TextOf(11, {0x05, 0x40, 0x00, 0x80, 0xFF, 0xFF, 0xFF, 0xFF}),
              "It failed (0x80004005) with \"-1\" // two");
    EXPECT_EQ(TextOf(23, BytesOf(std::string_view("5.10.2.0\0", 9))), "The version is 5.10.2.0");
    EXPECT_EQ(TextOf(24, {'a', 0, 'b', 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0}), "ab and 257");
}

TEST_F(TraceFormatsTest, KnowsShortAndWideNumbers) {
    EXPECT_EQ(TextOf(12, {0xFE, 0xFF, 8, 7, 6, 5, 4, 3, 2, 1}), "-2 0x0102030405060708");
    EXPECT_EQ(TextOf(12, {0xFE, 0xFF, 8}), "-2 (cut short: 08)");
}

// The service sends some texts without their terminator.
TEST_F(TraceFormatsTest, ATextMayEndWithThePayload) {
    EXPECT_EQ(TextOf(23, BytesOf("5.1")), "The version is 5.1");
    EXPECT_EQ(TextOf(23, {}), "The version is ");
}

TEST_F(TraceFormatsTest, TellsTheBytesOfWhatItCannotRead) {
    EXPECT_EQ(TextOf(11, {0x05, 0x40, 0x00}), "It failed ((cut short: 054000)) with \"(missing)\" // two");
    EXPECT_EQ(TextOf(99, {0xAB}), "message 99 of fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1 (ab)");
    EXPECT_EQ(formats_.Text("no group", 10, {}), "message 10 of no group ()");
}

TEST_F(TraceFormatsTest, PassesOverWhatIsNoTraceFormat) {
    TraceFormats formats;
    formats.Read("#typev\n#typev x y \"z\" //\n,\n\n{\nArgument, ItemLong -- 10\nfbfbaa6b\n");
    EXPECT_EQ(formats.Count(), 0U);
}
