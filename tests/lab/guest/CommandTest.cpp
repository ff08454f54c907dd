#include "lab/guest/Command.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

using lab::guest::Command;
using lab::guest::InvalidCommand;
using nlohmann::json;

namespace {

// The text of the refusal; "taken" when there is none.
std::string RefusalOf(const std::function<void()>& act) {
    try {
        act();
    } catch (const InvalidCommand& error) {
        return error.what();
    }
    return "taken";
}

// As it comes over the wire, where a number from 0 has no sign.
Command WithField(const json& value) {
    return Command(json::parse(json({{"command", "test"}, {"field", value}}).dump()));
}

}  // namespace

TEST(Command, HasAName) {
    EXPECT_EQ(Command(json{{"command", "devices"}}).Name(), "devices");
}

TEST(Command, IsAnObjectWithAName) {
    EXPECT_EQ(RefusalOf([] { (void)Command(json::array()); }), "not a JSON object");
    EXPECT_EQ(RefusalOf([] { (void)Command(json(json::value_t::discarded)); }), "not a JSON object");
    EXPECT_EQ(RefusalOf([] { (void)Command(json{{"event", "done"}}); }), "command is missing");
    EXPECT_EQ(RefusalOf([] { (void)Command(json{{"command", 7}}); }), "command is no text");
}

TEST(Command, TellsWhetherAFieldIsThere) {
    EXPECT_TRUE(WithField(nullptr).Has("field"));
    EXPECT_FALSE(WithField(1).Has("other"));
}

TEST(Command, ReadsANumberWithinItsRange) {
    EXPECT_EQ(WithField(0).Number("field", 0, 255), 0U);
    EXPECT_EQ(WithField(255).Number("field", 0, 255), 255U);
    constexpr auto kGreatest = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(WithField(kGreatest).Number("field", 0, kGreatest), kGreatest);
}

TEST(Command, RefusesANumberOutsideOfIt) {
    EXPECT_EQ(RefusalOf([] { (void)WithField(256).Number("field", 1, 255); }), "field is not from 1 to 255");
    EXPECT_EQ(RefusalOf([] { (void)WithField(0).Number("field", 1, 255); }), "field is not from 1 to 255");
}

TEST(Command, RefusesWhatIsNoNumber) {
    for (const json& value : {json("1"), json(1.5), json(-1), json(true), json(nullptr), json::array({1})}) {
        EXPECT_EQ(RefusalOf([&] { (void)WithField(value).Number("field", 0, 255); }),
                  "field is no whole number from 0")
            << value;
    }
    EXPECT_EQ(RefusalOf([] { (void)WithField(1).Number("other", 0, 255); }), "other is missing");
}

TEST(Command, ReadsTexts) {
    EXPECT_EQ(WithField("1-2").Text("field"), "1-2");
    EXPECT_EQ(WithField(json::array({"-l", ""})).Texts("field"), (std::vector<std::string>{"-l", ""}));
    EXPECT_EQ(WithField(json::array()).Texts("field"), std::vector<std::string>{});
}

TEST(Command, RefusesWhatIsNoText) {
    EXPECT_EQ(RefusalOf([] { (void)WithField(1).Text("field"); }), "field is no text");
    EXPECT_EQ(RefusalOf([] { (void)WithField("-l").Texts("field"); }), "field is no list");
    EXPECT_EQ(RefusalOf([] { (void)WithField(json::array({"-l", 1})).Texts("field"); }), "field is no text");
}

TEST(Command, RefusesATextThatNoPathCanBe) {
    const std::string longest(Command::kLongestText, 'x');
    EXPECT_EQ(WithField(longest).Text("field"), longest);
    EXPECT_EQ(RefusalOf([&] { (void)WithField(longest + 'x').Text("field"); }), "field is too long");
    EXPECT_EQ(RefusalOf([] { (void)WithField(std::string("a\0b", 3)).Text("field"); }),
              "field has a zero in it");
}

TEST(Command, ReadsBytesWithBlanksAndWithout) {
    const std::vector<std::uint8_t> bytes{0x80, 0x06, 0xAB};
    EXPECT_EQ(WithField("8006ab").Bytes("field", 3), bytes);
    EXPECT_EQ(WithField("80 06 AB").Bytes("field", 3), bytes);
    EXPECT_EQ(WithField("").Bytes("field", 0), std::vector<std::uint8_t>{});
}

TEST(Command, RefusesBytesThatAreNoneOrTooMany) {
    EXPECT_EQ(RefusalOf([] { (void)WithField("8").Bytes("field", 3); }), "field is not hexadecimal");
    EXPECT_EQ(RefusalOf([] { (void)WithField("8x").Bytes("field", 3); }), "field is not hexadecimal");
    EXPECT_EQ(RefusalOf([] { (void)WithField("80 06").Bytes("field", 1); }), "field has more than 1 bytes");
    EXPECT_EQ(RefusalOf([] { (void)WithField(json::array({1})).Bytes("field", 1); }), "field is no text");
}
