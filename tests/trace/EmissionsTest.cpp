#include "tests/trace/Emissions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using Strings = std::vector<std::string>;

const std::string kGroup = "{00112233-4455-6677-8899-AABBCCDDEEFF}";
const std::string kServiceBase = "{D3A7CCDD-8055-340B-3A0C-14F1E4FB3339}";
const std::string kUpdateService = "{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}";
const std::string kScopes = "{5B0FDCD3-A0E5-3094-0EFF-D5D1628796F4}";
const std::string kLaunch = "{1FC2A5F0-3B7D-4E0C-9A54-6D0B8EC14793}";
const std::string kSink = "{86E9D1B4-5F2A-4C37-B81E-20A7934DF65C}";

const std::vector<UnreachableEmission>& Unreachable() {
    static const std::vector<UnreachableEmission> unreachable{
        {kUpdateService, 21,
         "an open connection always hands out an endpoint, and the pass asks for one only when it is open"},
    };
    return unreachable;
}

std::string Code(unsigned code) {
    return {reinterpret_cast<const char*>(&code), sizeof code};
}

TEST(Emissions, AgreeWithTheTraceFormatFiles) {
    EXPECT_EQ(Complaints(ReadTraceFormats(TRACE_FORMATS), AllEmissions(), Unreachable()), Strings{});
}

// Every message once, in a form that a person reads.
TEST(Emissions, ReadAsSentences) {
    const auto formats = ReadTraceFormats(TRACE_FORMATS);
    Strings sentences;
    for (const Emission& emission : AllEmissions()) {
        const auto format = std::find_if(formats.begin(), formats.end(), [&emission](const TraceFormat& one) {
            return one.group == emission.group && one.number == emission.number;
        });
        ASSERT_NE(format, formats.end());
        sentences.push_back(Format(*format, emission.arguments.front()));
    }
    EXPECT_EQ(sentences,
              (Strings{
                  "The toast controller could not be started for its registration (error 2)",
                  "==> Traced::Function",
                  "The service listens for the user's answer (cookie 4711)",
                  "The service cannot listen for the user's answer (0x80004005)",
                  "Starting failed with an error code: the service stops again",
                  "Starting failed: the service stops again",
                  "A camera interface arrived",
                  "A USB device interface arrived",
                  "Stopping failed with error 1450: the service goes on",
                  "Pausing failed with error 1450: the service goes on",
                  "Continuing failed with error 1450: the service stays paused",
                  "Shutting down failed with error 1450",
                  "The update service is being set up",
                  "COM security could not be set up (0x80004005): nobody will be asked",
                  "The toast controller could not be registered (0x80070005): nobody will be asked",
                  "A USB device arrived, but no camera in DFU mode is present",
                  "A camera in DFU mode is present",
                  "The camera in DFU mode could not be opened",
                  "The camera's firmware version is unknown",
                  "The camera's firmware version is 5.0.0.0",
                  "The update service is asked to stop",
                  "The firmware image could not be opened",
                  "The firmware image is too short to hold a version",
                  "The firmware image's version is 6.6.6.6",
              }));
}

// The judge itself: one message that agrees, and each way in which it might not.
class Judgement : public testing::Test {
  protected:
    [[nodiscard]] Strings Complained() const { return Complaints(formats_, emissions_, unreachable_); }
    static std::string About(unsigned number, const std::string& text) {
        return kGroup + " " + std::to_string(number) + ": " + text;
    }

    std::vector<TraceFormat> formats_{{.group = kGroup,
                                       .number = 10,
                                       .text = "Error %10!s!",
                                       .level = 2,
                                       .flags = 1,
                                       .arguments = {{"Error", "ItemWINERROR"}}}};
    std::vector<Emission> emissions_{{.group = kGroup,
                                      .number = 10,
                                      .lowestLevel = 2,
                                      .needsFlag1 = true,
                                      .arguments = {{Code(5)}, {Code(6)}}}};
    std::vector<UnreachableEmission> unreachable_;
};

TEST_F(Judgement, HasNothingToSayOfAMessageThatAgrees) {
    EXPECT_EQ(Complained(), Strings{});
}

TEST_F(Judgement, NamesAMessageWithoutAText) {
    emissions_.push_back(emissions_[0]);
    emissions_[1].number = 11;
    EXPECT_EQ(Complained(), Strings{About(11, "has no text")});
}

TEST_F(Judgement, NamesATextThatNothingSends) {
    formats_.push_back(formats_[0]);
    formats_[1].number = 11;
    EXPECT_EQ(Complained(), Strings{About(11, "is a text that nothing sends")});
}

TEST_F(Judgement, TellsTheSameNumberOfTwoGroupsApart) {
    formats_[0].group = kServiceBase;
    EXPECT_EQ(Complained(),
              (Strings{About(10, "has no text"), kServiceBase + " 10: is a text that nothing sends"}));
}

TEST_F(Judgement, NamesAnotherLevel) {
    formats_[0].level = 4;
    EXPECT_EQ(Complained(), Strings{About(10, "is sent from level 2 on")});
}

TEST_F(Judgement, NamesAnotherFlag) {
    formats_[0].flags = 2;
    EXPECT_EQ(Complained(), Strings{About(10, "is sent with another flag")});
    formats_[0].flags = 1;
    emissions_[0].needsFlag1 = false;
    EXPECT_EQ(Complained(), Strings{About(10, "is sent with another flag")});
}

TEST_F(Judgement, NamesArgumentsOfAnotherTypeEachTimeTheyAreSent) {
    formats_[0].arguments[0].type = "ItemString";
    EXPECT_EQ(Complained(), Strings(2, About(10, "Error is no ItemString")));
    emissions_[0].arguments[1] = {std::string("ok", 3)};
    EXPECT_EQ(Complained(), Strings{About(10, "Error is no ItemString")});
}

TEST_F(Judgement, NamesAnotherNumberOfArguments) {
    emissions_[0].arguments[1] = {};
    EXPECT_EQ(Complained(), Strings{About(10, "0 arguments instead of 1")});
    emissions_[0].arguments[1] = {Code(5), Code(6)};
    EXPECT_EQ(Complained(), Strings{About(10, "2 arguments instead of 1")});
}

TEST_F(Judgement, TakesATextOfAnEmitterThatIsNotReached) {
    emissions_.clear();
    unreachable_ = {{kGroup, 10, "for a reason"}};
    EXPECT_EQ(Complained(), Strings{});
}

TEST_F(Judgement, NamesAnEmitterThatIsReachedAfterAll) {
    unreachable_ = {{kGroup, 10, "for a reason"}};
    EXPECT_EQ(Complained(), Strings{About(10, "is reached after all")});
}

TEST_F(Judgement, NamesAnUnreachedEmitterWithoutAText) {
    unreachable_ = {{kGroup, 11, "for a reason"}};
    EXPECT_EQ(Complained(), Strings{About(11, "has no text")});
}

}  // namespace
