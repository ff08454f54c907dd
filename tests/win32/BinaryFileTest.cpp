#include "win32/BinaryFile.h"

#include "tests/support/ImageFile.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

namespace {

using win32::OpenBinaryFile;

std::vector<std::uint8_t> BytesOf(std::ifstream& file) {
    return {std::istreambuf_iterator<char>(file), {}};
}

// Line ends and the old end-of-file mark are bytes like others.
TEST(BinaryFile, GivesTheBytesAsTheyAre) {
    const std::vector<std::uint8_t> bytes{0x0D, 0x0A, 0x1A, 0x00, 0xFF, 0x0A};
    const test_support::ImageFile image(bytes);
    std::ifstream file = OpenBinaryFile(image.Path());
    EXPECT_TRUE(file.is_open());
    EXPECT_TRUE(file.good());
    EXPECT_EQ(BytesOf(file), bytes);
}

TEST(BinaryFile, OpensAtTheEndWhenAsked) {
    const test_support::ImageFile image(std::vector<std::uint8_t>(300));
    std::ifstream file = OpenBinaryFile(image.Path(), std::ios::ate);
    EXPECT_EQ(file.tellg(), std::streampos(300));
}

TEST(BinaryFile, OpensAPathOutsideTheNarrowCharacterSet) {
    const std::vector<std::uint8_t> bytes{1, 2, 3};
    const test_support::ImageFile image(bytes, L"\u65E5\u672C.bin");
    std::ifstream file = OpenBinaryFile(image.Path());
    EXPECT_EQ(BytesOf(file), bytes);
}

// Whoever reads on without asking gets nothing, instead of what lay in the buffer.
TEST(BinaryFile, IsInAFailedStateWhenItCannotBeOpened) {
    for (const wchar_t* path : {L"C:\\no such folder\\no such file", L""}) {
        std::ifstream file = OpenBinaryFile(path);
        EXPECT_FALSE(file.is_open());
        EXPECT_TRUE(file.fail());
        EXPECT_TRUE(BytesOf(file).empty());
    }
}

TEST(BinaryFile, DoesNotOpenAFolder) {
    std::wstring folder(MAX_PATH, L'\0');
    folder.resize(GetWindowsDirectoryW(folder.data(), MAX_PATH));
    EXPECT_FALSE(OpenBinaryFile(folder).is_open());
}

}  // namespace
