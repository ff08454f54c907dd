#include "tests/trace/TraceFormats.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const std::string kGroupLine = "00112233-4455-6677-8899-aabbccddeeff Sample // SRC=Sample.cpp MJ= MN=\n";

std::string MessageLines(const std::string& text, const std::string& arguments) {
    return "#typev Sample_10 10 \"%0" + text + "\" // LEVEL=4 FLAGS=1\n{\n" + arguments + "}\n";
}

std::vector<TraceFormat> Read(const std::string& content) {
    std::istringstream file(content);
    return ReadTraceFormats(file, "Sample");
}

// What is said of a file that cannot be read.
std::string Complaint(const std::string& content) {
    try {
        static_cast<void>(Read(content));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "none";
}

// One argument of the type, shown in words; what is said of it when it does not fit.
std::string Words(const std::string& type, char letter, const std::string& bytes) {
    const auto formats =
        Read(kGroupLine + MessageLines(std::string("%10!") + letter + "!", "One, " + type + " -- 10\n"));
    try {
        return Format(formats.at(0), {bytes});
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(TraceFormats, AreReadFromAFile) {
    const auto formats =
        Read("// A comment.\n// Another one.\n" + kGroupLine +
             MessageLines("Error %11!s! of %10!s!", "What, ItemString -- 10\nError, ItemWINERROR -- 11\n") +
             "#typev Sample_12 12 \"%0Plain\" // LEVEL=2 FLAGS=3\n{\n}\n");
    ASSERT_EQ(formats.size(), 2u);
    EXPECT_EQ(formats[0].group, "{00112233-4455-6677-8899-AABBCCDDEEFF}");
    EXPECT_EQ(formats[0].number, 10u);
    EXPECT_EQ(formats[0].text, "Error %11!s! of %10!s!");
    EXPECT_EQ(formats[0].level, 4u);
    EXPECT_EQ(formats[0].flags, 1u);
    ASSERT_EQ(formats[0].arguments.size(), 2u);
    EXPECT_EQ(formats[0].arguments[0].name, "What");
    EXPECT_EQ(formats[0].arguments[1].type, "ItemWINERROR");
    EXPECT_EQ(formats[1].number, 12u);
    EXPECT_EQ(formats[1].level, 2u);
    EXPECT_EQ(formats[1].flags, 3u);
    EXPECT_TRUE(formats[1].arguments.empty());
}

TEST(TraceFormats, AreRefusedWithTheLineThatIsWrong) {
    EXPECT_EQ(Complaint(""), "Sample.tmf, line 1: not the line of this file's group");
    EXPECT_EQ(Complaint("00112233-4455-6677-8899-aabbccddeeff Other // SRC=Other.cpp MJ= MN=\n"),
              "Sample.tmf, line 1: not the line of this file's group");
    EXPECT_EQ(Complaint(kGroupLine + "// A comment behind the group.\n"),
              "Sample.tmf, line 2: not the line of a message");
    EXPECT_EQ(Complaint(kGroupLine + "#typev Sample_10 10 \"Text\" // LEVEL=4 FLAGS=1\n{\n}\n"),
              "Sample.tmf, line 2: not the line of a message");
    EXPECT_EQ(Complaint(kGroupLine + "#typev Sample_10 11 \"%0Text\" // LEVEL=4 FLAGS=1\n{\n}\n"),
              "Sample.tmf, line 2: the message has another name");
    EXPECT_EQ(Complaint(kGroupLine + "#typev Sample_10 10 \"%0Text\" // LEVEL=4 FLAGS=1\n}\n"),
              "Sample.tmf, line 3: the arguments do not begin");
    EXPECT_EQ(Complaint(kGroupLine + "#typev Sample_10 10 \"%0Text\" // LEVEL=4 FLAGS=1\n{\n"),
              "Sample.tmf, line 4: the arguments do not end");
    EXPECT_EQ(Complaint(kGroupLine + MessageLines("Text", "One ItemLong 10\n")),
              "Sample.tmf, line 4: not the line of an argument");
    EXPECT_EQ(Complaint(kGroupLine + MessageLines("Text", "One, ItemLong -- 11\n")),
              "Sample.tmf, line 4: the arguments are not numbered from 10 on");
    EXPECT_EQ(Complaint(kGroupLine + MessageLines("Text", "One, ItemRevolution -- 10\n")),
              "Sample.tmf, line 4: the type is not known");
    EXPECT_EQ(Complaint(kGroupLine + MessageLines("Text", "") + MessageLines("Text", "")),
              "Sample.tmf, line 7: the number comes twice");
}

TEST(TraceFormats, AreRefusedWithAPlaceThatDoesNotFitItsArgument) {
    EXPECT_EQ(Complaint(kGroupLine + MessageLines("100 %", "")),
              "Sample.tmf, line 4: a place in the text is malformed");
    EXPECT_EQ(Complaint(kGroupLine + MessageLines("Error %10!d!", "")),
              "Sample.tmf, line 4: a place in the text has no argument");
    EXPECT_EQ(Complaint(kGroupLine + MessageLines("Error %9!d!", "One, ItemLong -- 10\n")),
              "Sample.tmf, line 5: a place in the text has no argument");
    EXPECT_EQ(Complaint(kGroupLine + MessageLines("Error %10!s!", "One, ItemLong -- 10\n")),
              "Sample.tmf, line 5: a place in the text shows its argument as another type");
    EXPECT_EQ(Complaint(kGroupLine + MessageLines("Error %10!d!", "One, ItemString -- 10\n")),
              "Sample.tmf, line 5: a place in the text shows its argument as another type");
}

TEST(TraceFormats, ShowEachTypeInWords) {
    EXPECT_EQ(Words("ItemString", 's', std::string("text", 5)), "text");
    EXPECT_EQ(Words("ItemWString", 's', std::string("o\0k\0\0\0", 6)), "ok");
    EXPECT_EQ(Words("ItemShort", 'd', "\xFE\xFF"), "-2");
    EXPECT_EQ(Words("ItemLong", 'd', "\xFE\xFF\xFF\xFF"), "-2");
    EXPECT_EQ(Words("ItemULong", 'u', "\xFE\xFF\xFF\xFF"), "4294967294");
    EXPECT_EQ(Words("ItemULongX", 'x', std::string("\x0A\0\0\0", 4)), "0x0000000a");
    EXPECT_EQ(Words("ItemHRESULT", 's', std::string("\x05\0\x07\x80", 4)), "0x80070005");
    EXPECT_EQ(Words("ItemWINERROR", 's', std::string("\x05\0\0\0", 4)), "5");
}

TEST(TraceFormats, TakeTextsThatEndWithTheirTerminatorAlone) {
    EXPECT_EQ(Words("ItemString", 's', std::string("", 1)), "");
    EXPECT_EQ(Words("ItemString", 's', "Ge"), "One is no ItemString");
    EXPECT_EQ(Words("ItemString", 's', ""), "One is no ItemString");
    EXPECT_EQ(Words("ItemString", 's', std::string("two\0texts", 10)), "One is no ItemString");
    EXPECT_EQ(Words("ItemWString", 's', std::string("\0\0", 2)), "");
    EXPECT_EQ(Words("ItemWString", 's', std::string("o\0k\0", 4)), "One is no ItemWString");
    EXPECT_EQ(Words("ItemWString", 's', std::string("o\0\0\0k\0", 6)), "One is no ItemWString");
    EXPECT_EQ(Words("ItemWString", 's', std::string("o\0\0\0\0", 5)), "One is no ItemWString");
}

TEST(TraceFormats, TakeNumbersOfTheirSizeAlone) {
    for (const std::size_t size : {0u, 2u, 3u, 5u, 8u}) {
        EXPECT_EQ(Words("ItemLong", 'd', std::string(size, '\1')), "One is no ItemLong") << size;
    }
    EXPECT_EQ(Words("ItemShort", 'd', std::string(4, '\1')), "One is no ItemShort");
}

TEST(TraceFormats, TakeAsManyArgumentsAsTheyDescribe) {
    const auto formats = Read(kGroupLine + MessageLines("Text", "One, ItemLong -- 10\n"));
    EXPECT_THROW(static_cast<void>(Format(formats.at(0), {})), std::runtime_error);
    EXPECT_THROW(static_cast<void>(Format(formats.at(0), {"four", "four"})), std::runtime_error);
    EXPECT_EQ(Format(formats.at(0), {"four"}), "Text");
}

}  // namespace
