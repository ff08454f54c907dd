#include "check/FileInspector.h"

#include "check/Utf8.h"
#include "tests/support/ImageFile.h"

#include <gtest/gtest.h>

using check::FileInspector;
using check::Protected;
using test_support::ImageFile;

TEST(FileInspector, TellsFilesFromFoldersAndFromNothing) {
    const ImageFile file({1, 2, 3});
    EXPECT_TRUE(FileInspector::IsFile(check::Utf8(file.Path())));
    EXPECT_FALSE(FileInspector::IsFile("C:\\windows"));
    EXPECT_FALSE(FileInspector::IsFile("C:\\no such file"));
    EXPECT_FALSE(FileInspector::IsFile(""));
}

TEST(FileInspector, ReadsTheVersionOfWhatHasOne) {
    const ImageFile file({1, 2, 3});
    EXPECT_EQ(FileInspector::VersionOf(check::Utf8(file.Path())), "");
    EXPECT_EQ(FileInspector::VersionOf("C:\\no such file"), "");
    EXPECT_NE(FileInspector::VersionOf("C:\\windows\\system32\\kernel32.dll"), "");
}

TEST(FileInspector, TellsWhyItDoesNotTellWhoWrites) {
    const check::WritersState writers = FileInspector::WritersOf("C:\\no such file", Protected::File);
    EXPECT_EQ(writers.error, 2U);
    EXPECT_TRUE(writers.names.empty());
    EXPECT_EQ(FileInspector::WritersOf("C:\\windows", Protected::Folder).error, 0U);
}

TEST(FileInspector, WhatIsMissingIsNoError) {
    const ImageFile file({1, 2, 3});
    EXPECT_EQ(FileInspector::ErrorOf(check::Utf8(file.Path())), 0U);
    EXPECT_EQ(FileInspector::ErrorOf("C:\\windows"), 0U);
    EXPECT_EQ(FileInspector::ErrorOf("C:\\no such file"), 0U);
    EXPECT_EQ(FileInspector::ErrorOf("C:\\no such folder\\x"), 0U);
    EXPECT_EQ(FileInspector::ErrorOf(""), 0U);
}
