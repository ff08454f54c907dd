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
    EXPECT_TRUE(FileInspector::WritersOf("C:\\no such file", Protected::File).empty());
}
