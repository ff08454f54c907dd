#include "lab/guest/FileCommands.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include <nlohmann/json.hpp>

#include "tests/lab/guest/TemporaryPlaces.h"

using lab::guest::CommandTable;
using lab::guest::FileCommands;
using nlohmann::json;

namespace {

class FileCommandsTest : public testing::Test {
  protected:
    FileCommandsTest() { files_.AddTo(table_); }

    json Ask(const json& command) const { return table_.Answer(command.dump()).value_or(json("later")); }
    // Why the command is refused, or the kernel's error.
    std::string OutcomeOf(const json& command) const {
        const json answer = Ask(command);
        return answer.value(answer.contains("errno") ? "errno" : "why", "done");
    }
    static json Write(const std::string& file, std::size_t from, const std::string& data) {
        return {{"command", "write-file"}, {"file", file}, {"from", from}, {"data", data}};
    }
    static json Read(const std::string& file, std::size_t from, std::size_t length) {
        return {{"command", "read-file"}, {"file", file}, {"from", from}, {"length", length}};
    }

    TemporaryPlaces places_;
    FileCommands files_{places_.Places()};
    CommandTable table_;
};

}  // namespace

TEST_F(FileCommandsTest, WritesAFileInPieces) {
    EXPECT_EQ(Ask(Write("image.bin", 0, "00 01 02")).at("size"), 3);
    EXPECT_EQ(Ask(Write("image.bin", 3, "03ff")).at("size"), 5);
    std::ifstream file(places_.Places().files / "image.bin", std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator(file), {}), std::string("\x00\x01\x02\x03\xff", 5));
}

TEST_F(FileCommandsTest, CutsOffWhatWasBehindAPiece) {
    places_.Write("files/image.bin", "abcdef");
    EXPECT_EQ(Ask(Write("image.bin", 1, "78")).at("size"), 2);
    EXPECT_EQ(Ask(Read("image.bin", 0, 100)).at("data"), "6178");
    EXPECT_EQ(Ask(Write("image.bin", 0, "")).at("size"), 0);
}

TEST_F(FileCommandsTest, ReadsPiecesOfAFile) {
    places_.Write("files/read-back.bin", "abcdef");
    EXPECT_EQ(
        Ask(Read("read-back.bin", 0, 4)),
        (json{{"event", "done"}, {"command", "read-file"}, {"ok", true}, {"data", "61626364"}, {"size", 6}}));
    EXPECT_EQ(Ask(Read("read-back.bin", 4, 4)).at("data"), "6566");
    EXPECT_EQ(Ask(Read("read-back.bin", 6, 4)).at("data"), "");
    EXPECT_EQ(Ask(Read("read-back.bin", 100, 4)).at("data"), "");
}

TEST_F(FileCommandsTest, RemovesAFile) {
    places_.Write("files/image.bin", "abcdef");
    const json command{{"command", "remove-file"}, {"file", "image.bin"}};
    EXPECT_EQ(OutcomeOf(command), "done");
    EXPECT_EQ(OutcomeOf(command), "ENOENT");
    EXPECT_EQ(OutcomeOf(Read("image.bin", 0, 1)), "ENOENT");
}

TEST_F(FileCommandsTest, LeavesNoHoles) {
    places_.Write("files/image.bin", "abcdef");
    EXPECT_EQ(OutcomeOf(Write("image.bin", 7, "00")), "from is behind the file's end");
    EXPECT_EQ(Ask(Read("image.bin", 0, 100)).at("size"), 6);
}

TEST_F(FileCommandsTest, MovesNoMoreThanAPieceAndNoLongerFile) {
    const std::string tooMuch(2 * (FileCommands::kMostPieceBytes + 1), '0');
    EXPECT_EQ(OutcomeOf(Write("image.bin", 0, tooMuch)), "data has more than 262144 bytes");
    EXPECT_EQ(OutcomeOf(Write("image.bin", 0, tooMuch.substr(2))), "done");
    EXPECT_EQ(OutcomeOf(Write("image.bin", FileCommands::kMostFileBytes, "00")),
              "the file would have more than 16777216 bytes");
    EXPECT_EQ(OutcomeOf(Read("image.bin", 0, FileCommands::kMostPieceBytes + 1)),
              "length is not from 0 to 262144");
    EXPECT_EQ(Ask(Read("image.bin", 0, FileCommands::kMostPieceBytes)).at("size"),
              FileCommands::kMostPieceBytes);
}

TEST_F(FileCommandsTest, StaysInItsFolder) {
    places_.Write("secret", "abcdef");
    for (const char* const name : {"", ".", "..", "../secret", "/etc/passwd", "folder/file"}) {
        EXPECT_EQ(OutcomeOf(Read(name, 0, 1)), "file is no file's name") << name;
        EXPECT_EQ(OutcomeOf(Write(name, 0, "00")), "file is no file's name") << name;
        EXPECT_EQ(OutcomeOf({{"command", "remove-file"}, {"file", name}}), "file is no file's name") << name;
    }
}

TEST_F(FileCommandsTest, TellsWhatTheKernelRefuses) {
    places_.Write("files/folder/file", "");
    EXPECT_EQ(OutcomeOf(Write("folder", 0, "00")), "EISDIR");
    EXPECT_EQ(OutcomeOf(Read("folder", 0, 1)), "EISDIR");
}
