#include "check/ImageQuery.h"

#include "tests/support/ImageFile.h"

#include <gtest/gtest.h>

using check::ImageState;
using check::QueryImage;
using test_support::ImageFile;

TEST(ImageQuery, TellsSizeDigestAndVersion) {
    std::vector<std::uint8_t> bytes(500);
    bytes[398] = 1;
    bytes[399] = 2;
    bytes[400] = 3;
    bytes[401] = 4;
    const ImageFile file(bytes);
    const ImageState state = QueryImage(file.Path());
    EXPECT_TRUE(state.exists);
    EXPECT_TRUE(state.isReadable);
    EXPECT_EQ(state.size, 500U);
    EXPECT_EQ(state.version, "4.3.2.1");
    EXPECT_EQ(state.sha256.size(), 64U);
}

TEST(ImageQuery, TheDigestIsSha256) {
    const ImageFile empty({});
    EXPECT_EQ(QueryImage(empty.Path()).sha256,
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    const ImageFile abc({'a', 'b', 'c'}, L"abc.bin");
    EXPECT_EQ(QueryImage(abc.Path()).sha256,
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(ImageQuery, AShortFileHasNoVersion) {
    const ImageFile file(std::vector<std::uint8_t>(401));
    const ImageState state = QueryImage(file.Path());
    EXPECT_TRUE(state.isReadable);
    EXPECT_EQ(state.version, "");
}

TEST(ImageQuery, TellsWhyItCannotBeRead) {
    const ImageState missing = QueryImage(L"C:\\no such file");
    EXPECT_FALSE(missing.exists);
    EXPECT_EQ(missing.error, 2U);
    const ImageState device = QueryImage(L"NUL");
    EXPECT_FALSE(device.isReadable);
    EXPECT_EQ(device.error, static_cast<DWORD>(ERROR_BAD_FILE_TYPE));
    const ImageState folder = QueryImage(L"C:\\windows");
    EXPECT_TRUE(folder.exists);
    EXPECT_FALSE(folder.isReadable);
    EXPECT_EQ(folder.error, 5U);
}
