#include "check/CheckArguments.h"

#include <gtest/gtest.h>

using namespace check;
using Words = std::vector<std::string>;

namespace {

std::string Refusal(const Words& words) {
    try {
        static_cast<void>(ReadArguments(words));
    } catch (const UsageError& error) {
        return error.what();
    }
    return "none";
}

}  // namespace

TEST(CheckArguments, StatusIsTheDefault) {
    EXPECT_EQ(ReadArguments({}).command, Command::Status);
    EXPECT_FALSE(ReadArguments({}).isJson);
    EXPECT_TRUE(ReadArguments({"--json"}).isJson);
    EXPECT_EQ(ReadArguments({"--json", "status"}).command, Command::Status);
    EXPECT_TRUE(ReadArguments({"status", "--json"}).isJson);
}

TEST(CheckArguments, HelpAndVersionNeedNothingElse) {
    EXPECT_EQ(ReadArguments({"--help"}).command, Command::Help);
    EXPECT_EQ(ReadArguments({"-h"}).command, Command::Help);
    EXPECT_EQ(ReadArguments({"/?"}).command, Command::Help);
    EXPECT_EQ(ReadArguments({"status", "--help"}).command, Command::Help);
    EXPECT_EQ(ReadArguments({"--version"}).command, Command::Version);
}

TEST(CheckArguments, WhatMakesNoSenseIsRefusedInOneLine) {
    EXPECT_EQ(Refusal({"repair"}), "there is no command \"repair\"");
    EXPECT_EQ(Refusal({"--xml"}), "there is no option \"--xml\"");
    EXPECT_EQ(Refusal({"status", "status"}), "one word too many: \"status\"");
    EXPECT_EQ(Refusal({""}), "there is no command \"\"");
    EXPECT_EQ(Refusal({"a\nb"}), "there is no command \"a?b\"");
}
