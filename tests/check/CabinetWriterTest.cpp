#include "check/CabinetWriter.h"

#include "check/Utf8.h"
#include "tests/support/ImageFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

using check::WriteCabinet;
using test_support::ImageFile;

namespace {

class CabinetWriterTest : public ::testing::Test {
  protected:
    CabinetWriterTest() : folder_(std::filesystem::temp_directory_path() / L"veyra-cabinet-\u00E4") {
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directory(folder_);
    }
    ~CabinetWriterTest() override { std::filesystem::remove_all(folder_); }

    std::filesystem::path folder_;
};

}  // namespace

TEST_F(CabinetWriterTest, WritesACabinetAndLeavesNothingElse) {
    const ImageFile one(std::vector<std::uint8_t>(100000, 7));
    const ImageFile two({}, L"empty.bin");
    EXPECT_EQ(WriteCabinet({{"one.bin", check::Utf8(one.Path())}, {"two.bin", check::Utf8(two.Path())}},
                           check::Utf8(folder_.wstring()), "made.cab"),
              "");
    std::ifstream file(folder_ / L"made.cab", std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(content.substr(0, 4), "MSCF");
    EXPECT_NE(content.find("one.bin"), std::string::npos);
    EXPECT_NE(content.find("two.bin"), std::string::npos);
    EXPECT_LT(content.size(), 10000U);
    const auto left = std::distance(std::filesystem::directory_iterator(folder_), {});
    EXPECT_EQ(left, 1);
}

TEST_F(CabinetWriterTest, TellsWhatItCannotDo) {
    EXPECT_NE(WriteCabinet({{"none.bin", "C:\\no such file"}}, check::Utf8(folder_.wstring()), "made.cab"),
              "");
    EXPECT_EQ(WriteCabinet({}, std::string(300, 'x'), "made.cab"), "the path of the cabinet is too long");
}
