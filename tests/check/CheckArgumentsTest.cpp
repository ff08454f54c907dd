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

TEST(CheckArguments, WindowsMayBeAsked) {
    EXPECT_EQ(ReadArguments({"windows"}).command, Command::Windows);
    EXPECT_EQ(Refusal({"windows", "11"}), "one word too many: \"11\"");
}

TEST(CheckArguments, ARehearsalMayHaveAnImageAndABlockSize) {
    EXPECT_EQ(ReadArguments({"rehearse"}).command, Command::Rehearse);
    EXPECT_FALSE(ReadArguments({"rehearse"}).image.has_value());
    const CheckArguments arguments = ReadArguments({"rehearse", "new.bin", "--block-size", "4096", "--json"});
    EXPECT_EQ(arguments.image, "new.bin");
    EXPECT_EQ(arguments.blockSize, 4096U);
    EXPECT_TRUE(arguments.isJson);
    EXPECT_EQ(Refusal({"rehearse", "a", "b"}), "one word too many: \"b\"");
    EXPECT_EQ(Refusal({"rehearse", ""}), "one word too many: \"\"");
}

TEST(CheckArguments, AnImageIsAFile) {
    for (const char* device : {R"(\\?\usb#vid_2f1a&pid_7e01#1#{a5dcbf10-6530-11d2-901f-00c04fb951ed})",
                               R"(\\.\C:\x.bin)", "//./pipe/x", R"(\\?\GLOBALROOT\Device\x)",
                               R"(\??\usb#vid_2f1a)", "//?/usb#x", R"(\\.)", R"(\\?)"}) {
        EXPECT_EQ(Refusal({"rehearse", device}),
                  "an image is a file, which this is not: \"" + std::string(device) + "\"");
        EXPECT_EQ(Refusal({"collect", std::string(device) + "\\x.cab"}),
                  "what is to be made is a file, which this is not: \"" + std::string(device) + "\\x.cab\"");
    }
    for (const char* file : {"a.bin", R"(C:\a.bin)", R"(\\server\share\a.bin)", R"(\\?\C:\a.bin)",
                             R"(\\?\unc\server\share\a.bin)", R"(\a.bin)"}) {
        EXPECT_EQ(ReadArguments({"rehearse", file}).image, file);
    }
}

TEST(CheckArguments, ABlockHasOneTo65535Bytes) {
    EXPECT_EQ(ReadArguments({"rehearse", "--block-size", "65535"}).blockSize, 65535U);
    for (const char* size : {"0", "65536", "-1", "1k", "", "99999999999"}) {
        EXPECT_EQ(Refusal({"rehearse", "--block-size", size}), "--block-size takes a number from 1 to 65535")
            << size;
    }
    EXPECT_EQ(Refusal({"rehearse", "--block-size"}), "--block-size takes a number from 1 to 65535");
    EXPECT_EQ(Refusal({"status", "--block-size", "5"}), "--block-size belongs to rehearse");
}

TEST(CheckArguments, ACollectionHasAFileAndPerhapsATime) {
    const CheckArguments arguments = ReadArguments({"collect", "a.cab", "--seconds", "60"});
    EXPECT_EQ(arguments.command, Command::Collect);
    EXPECT_EQ(arguments.cabinet, "a.cab");
    EXPECT_EQ(arguments.seconds, 60U);
    EXPECT_FALSE(ReadArguments({"collect", "a.cab"}).seconds.has_value());
    EXPECT_EQ(ReadArguments({"collect", "A.CAB"}).cabinet, "A.CAB");
    EXPECT_EQ(Refusal({"collect", "cab"}), "the file to make ends in .cab: \"cab\"");
    EXPECT_EQ(Refusal({"collect"}), "collect takes the name of the file to make, which ends in .cab");
    EXPECT_EQ(Refusal({"collect", "a.zip"}), "the file to make ends in .cab: \"a.zip\"");
    EXPECT_EQ(Refusal({"collect", "a.cab", "b.cab"}), "one word too many: \"b.cab\"");
    EXPECT_EQ(Refusal({"collect", "a.cab", "--json"}), "collect has no --json: the file holds one");
    EXPECT_EQ(Refusal({"collect", "a.cab", "--seconds", "0"}), "--seconds takes a number from 1 to 86400");
    EXPECT_EQ(Refusal({"status", "--seconds", "5"}), "--seconds belongs to collect");
}
