#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Every file of a fuzz target's corpus is a test of its name: the seeds, and what a fuzzer once found.

namespace {

std::vector<std::filesystem::path> Files() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(CORPUS)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

class Corpus : public testing::TestWithParam<std::filesystem::path> {};

TEST_P(Corpus, KeepsThePromises) {
    std::ifstream file(GetParam(), std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
    const std::vector<std::uint8_t> input(content.begin(), content.end());
    EXPECT_EQ(LLVMFuzzerTestOneInput(input.data(), input.size()), 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, Corpus, testing::ValuesIn(Files()), [](const auto& instance) {
    std::string name = instance.param.stem().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char character) { return std::isalnum(character) == 0; }, '_');
    return name;
});

}  // namespace
