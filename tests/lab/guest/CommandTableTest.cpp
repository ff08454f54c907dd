#include "lab/guest/CommandTable.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

#include "lab/guest/KernelError.h"

using lab::guest::Command;
using lab::guest::CommandTable;
using lab::guest::InvalidCommand;
using nlohmann::json;

namespace {

CommandTable TableOf(CommandTable::Handler handler) {
    CommandTable table;
    table.Add("act", std::move(handler));
    return table;
}

json Refusal(const std::string& command, const std::string& why) {
    return {{"event", "done"}, {"command", command}, {"ok", false}, {"why", why}};
}

}  // namespace

TEST(CommandTable, AnswersWithTheFieldsOfTheHandler) {
    const auto table = TableOf([](const Command& command) {
        return json{{"twice", 2 * command.Number("number", 0, 9)}};
    });
    EXPECT_EQ(table.Answer(R"({"command":"act","number":3})"),
              (json{{"event", "done"}, {"command", "act"}, {"ok", true}, {"twice", 6}}));
}

TEST(CommandTable, TellsForWhomAnAnswerIs) {
    const auto table = TableOf([](const Command& command) {
        return json{{"twice", 2 * command.Number("number", 0, 9)}};
    });
    const json asker{{"pid", 5}, {"question", 7}};
    json question{{"command", "act"}, {"number", 3}, {"for", asker}};
    EXPECT_EQ(table.Answer(question.dump())->at("for"), asker);
    question["number"] = 10;
    EXPECT_EQ(table.Answer(question.dump())->at("ok"), false);
    EXPECT_EQ(table.Answer(question.dump())->at("for"), asker);
    question["command"] = "fly";
    EXPECT_EQ(table.Answer(question.dump())->at("for"), asker);
}

TEST(CommandTable, LeavesAnAnswerThatComesLater) {
    const auto table = TableOf([](const Command&) { return std::nullopt; });
    EXPECT_EQ(table.Answer(R"({"command":"act"})"), std::nullopt);
}

TEST(CommandTable, TakesTheStageInSilence) {
    EXPECT_EQ(CommandTable().Answer(R"({"reply":"stage"})"), std::nullopt);
}

TEST(CommandTable, RefusesALineThatIsNoCommand) {
    const CommandTable table;
    EXPECT_EQ(table.Answer(""), Refusal("", "not a JSON object"));
    EXPECT_EQ(table.Answer("{\"command\":\"act\""), Refusal("", "not a JSON object"));
    EXPECT_EQ(table.Answer("[1]"), Refusal("", "not a JSON object"));
    EXPECT_EQ(table.Answer("{}"), Refusal("", "command is missing"));
    EXPECT_EQ(table.Answer(R"({"reply":"curtain"})"), Refusal("", "command is missing"));
}

TEST(CommandTable, RefusesACommandThatThereIsNot) {
    EXPECT_EQ(CommandTable().Answer(R"({"command":"fly"})"), Refusal("fly", "there is no such command"));
}

TEST(CommandTable, RefusesWhatMakesNoSense) {
    const auto table =
        TableOf([](const Command&) -> std::optional<json> { throw InvalidCommand("unit is missing"); });
    EXPECT_EQ(table.Answer(R"({"command":"act"})"), Refusal("act", "unit is missing"));
}

TEST(CommandTable, NamesTheKernelsError) {
    const auto table = TableOf([](const Command&) -> std::optional<json> {
        throw lab::guest::KernelError(EPIPE, "the control transfer");
    });
    const auto answer = table.Answer(R"({"command":"act"})");
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->at("ok"), true);
    EXPECT_EQ(answer->at("errno"), "EPIPE");
    EXPECT_EQ(answer->at("why"), "the control transfer: Broken pipe");
}

TEST(CommandTable, SurvivesWhateverAHandlerThrows) {
    const auto table =
        TableOf([](const Command&) -> std::optional<json> { throw std::runtime_error("out of luck"); });
    EXPECT_EQ(table.Answer(R"({"command":"act"})"), Refusal("act", "out of luck"));
}
