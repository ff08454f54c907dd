#include "lab/guest/LineBuffer.h"

#include <gtest/gtest.h>

#include <string>

using lab::guest::LineBuffer;

TEST(LineBuffer, HasNothingBeforeALineHasEnded) {
    LineBuffer lines;
    EXPECT_EQ(lines.Next(), std::nullopt);
    lines.Append("{\"command\"");
    EXPECT_EQ(lines.Next(), std::nullopt);
}

TEST(LineBuffer, PutsPiecesTogether) {
    LineBuffer lines;
    lines.Append("on");
    lines.Append("e\n");
    EXPECT_EQ(lines.Next(), "one");
    EXPECT_EQ(lines.Next(), std::nullopt);
}

TEST(LineBuffer, HandsSeveralLinesOutInTheirOrder) {
    LineBuffer lines;
    lines.Append("one\n\ntwo\nthr");
    EXPECT_EQ(lines.Next(), "one");
    EXPECT_EQ(lines.Next(), "");
    EXPECT_EQ(lines.Next(), "two");
    EXPECT_EQ(lines.Next(), std::nullopt);
    lines.Append("ee\n");
    EXPECT_EQ(lines.Next(), "three");
}

TEST(LineBuffer, KeepsALineOfTheGreatestLength) {
    LineBuffer lines;
    const std::string longest(LineBuffer::kLongestLine, 'x');
    lines.Append(longest + '\n');
    EXPECT_EQ(lines.Next(), longest);
}

TEST(LineBuffer, CutsALongerLineOffAndGoesOnBehindIt) {
    LineBuffer lines;
    lines.Append(std::string(LineBuffer::kLongestLine, 'x'));
    lines.Append(std::string(LineBuffer::kLongestLine, 'y'));
    lines.Append("z\nnext\n");
    EXPECT_EQ(lines.Next(), std::string(LineBuffer::kLongestLine, 'x'));
    EXPECT_EQ(lines.Next(), "next");
}
