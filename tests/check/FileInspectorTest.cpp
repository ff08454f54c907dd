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

TEST(FileInspector, NamesNobodyForWhatIsNotThere) {
    EXPECT_FALSE(FileInspector::WritersOf("C:\\no such file", Protected::File).has_value());
    EXPECT_EQ(FileInspector::ReadPermissionOf("C:\\no such file"), check::Permission::NotSet);
}

TEST(FileInspector, NamesWritersOfWhatIsThere) {
    const ImageFile file({1, 2, 3});
    EXPECT_TRUE(FileInspector::WritersOf(check::Utf8(file.Path()), Protected::File).has_value());
    EXPECT_EQ(FileInspector::ReadPermissionOf(check::Utf8(file.Path())), check::Permission::Granted);
}

TEST(FileInspector, WhatIsMissingIsNoError) {
    const ImageFile file({1, 2, 3});
    EXPECT_EQ(FileInspector::ErrorOf(check::Utf8(file.Path())), 0U);
    EXPECT_EQ(FileInspector::ErrorOf("C:\\no such file"), 0U);
    EXPECT_EQ(FileInspector::ErrorOf("C:\\no such folder\\x"), 0U);
    EXPECT_EQ(FileInspector::ErrorOf(""), 0U);
}
