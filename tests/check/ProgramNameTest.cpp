#include "check/ProgramName.h"

#include <gtest/gtest.h>

using namespace check;
using Names = std::vector<std::string>;

TEST(ProgramName, IsThePathBetweenQuotes) {
    const ProgramName name = ProgramNameOf(R"("C:\Program Files\x.exe" -a b)");
    EXPECT_TRUE(name.isQuoted);
    EXPECT_EQ(name.path, R"(C:\Program Files\x.exe)");
    EXPECT_EQ(name.triedBefore, Names());
    EXPECT_EQ(ProgramNameOf("\"C:\\x.exe").path, "C:\\x.exe");
    EXPECT_EQ(ProgramNameOf("\"").path, "");
}

TEST(ProgramName, IsTheWholePathWithoutQuotesAndBlanks) {
    const ProgramName name = ProgramNameOf(R"(C:\Windows\VeyraCameraDfu\VeyraCameraDfuService.exe)");
    EXPECT_FALSE(name.isQuoted);
    EXPECT_EQ(name.path, R"(C:\Windows\VeyraCameraDfu\VeyraCameraDfuService.exe)");
    EXPECT_EQ(name.triedBefore, Names());
}

TEST(ProgramName, IsSearchedForAtEachBlankWithoutQuotes) {
    const ProgramName name = ProgramNameOf(R"(C:\Program Files\My App\x.EXE -a b)");
    EXPECT_EQ(name.path, R"(C:\Program Files\My App\x.EXE)");
    EXPECT_EQ(name.triedBefore, (Names{R"(C:\Program.exe)", R"(C:\Program Files\My.exe)"}));
}

TEST(ProgramName, OnlyANameWithoutADotIsCompleted) {
    EXPECT_EQ(ProgramNameOf(R"(C:\a.b c\x.exe)").triedBefore, Names{R"(C:\a.b)"});
    EXPECT_EQ(ProgramNameOf(R"(C:\a.b\c d\x.exe)").triedBefore, Names{R"(C:\a.b\c.exe)"});
}

TEST(ProgramName, IsTheFirstWordWhereNothingEndsInTheSuffix) {
    const ProgramName name = ProgramNameOf(R"(C:\tools\run  -a)");
    EXPECT_EQ(name.path, R"(C:\tools\run.exe)");
    EXPECT_EQ(name.triedBefore, Names());
}

TEST(ProgramName, OfNothingIsNothing) {
    EXPECT_EQ(ProgramNameOf("").path, "");
    EXPECT_EQ(ProgramNameOf("   ").path, "");
    EXPECT_EQ(ProgramNameOf("  C:\\x.exe").path, "C:\\x.exe");
}

TEST(ProgramName, FolderAndNameAreTheTwoPartsOfAPath) {
    EXPECT_EQ(FolderOf(R"(C:\Windows\x.exe)"), R"(C:\Windows)");
    EXPECT_EQ(FileNameOf(R"(C:\Windows\x.exe)"), "x.exe");
    EXPECT_EQ(FolderOf("x.exe"), "");
    EXPECT_EQ(FileNameOf("x.exe"), "x.exe");
}
