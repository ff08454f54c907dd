#include "lab/usbredir/RedirPort.h"

#include "tests/lab/usbredir/RedirGuest.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

// Where hosts come to plug a camera in.

namespace lab::test {
namespace {

class RedirPortTest : public testing::Test {
  protected:
    void SetUp() override {
        loop_.Add(std::make_unique<RedirPort>(Socket::Listen(place_), camera_, loop_));
        camera_.Plug(0);
    }

    void TearDown() override { std::filesystem::remove(path_); }

    [[nodiscard]] std::unique_ptr<RedirGuest> Come() const {
        return std::make_unique<RedirGuest>(Socket::Connect(place_));
    }

    void Exchange(RedirGuest& guest) {
        for (int round = 0; round < 5; ++round) {
            guest.Exchange();
            loop_.RunOnce(0);
        }
        guest.Exchange();
    }

    const std::string path_ = (std::filesystem::temp_directory_path() /
                               ("veyra-redir-port-" + std::to_string(getpid()) + ".socket"))
                                  .string();
    const std::string place_ = "unix:" + path_;
    ServedCamera camera_{0, {}, [](const nlohmann::json&) {}};
    ServerLoop loop_{[] { return std::uint64_t{0}; }};
};

TEST_F(RedirPortTest, TakesAHost) {
    const auto host = Come();
    Exchange(*host);
    EXPECT_TRUE(host->device.has_value());
    EXPECT_EQ(loop_.Members(), 2U);
}

TEST_F(RedirPortTest, TakesTheNextWhenTheFirstHasGone) {
    auto first = Come();
    Exchange(*first);
    const auto second = Come();
    Exchange(*second);
    EXPECT_TRUE(second->told.empty());
    first.reset();
    Exchange(*second);
    EXPECT_TRUE(second->device.has_value());
    EXPECT_EQ(loop_.Members(), 2U);
}

TEST_F(RedirPortTest, MayGoBeforeItsHost) {
    const auto host = Come();
    Exchange(*host);
    ServerLoop ending{[] { return std::uint64_t{0}; }};
    std::swap(ending, loop_);
    EXPECT_EQ(loop_.Members(), 0U);
}

TEST_F(RedirPortTest, ListensWhereASocketWasLeft) {
    ASSERT_TRUE(std::filesystem::is_socket(path_));
    EXPECT_TRUE(Socket::Listen(place_).IsOpen());
}

TEST_F(RedirPortTest, LeavesAFileThatIsNoSocket) {
    const std::string file = path_ + ".text";
    std::fclose(std::fopen(file.c_str(), "w"));
    EXPECT_THROW(static_cast<void>(Socket::Listen("unix:" + file)), std::runtime_error);
    EXPECT_TRUE(std::filesystem::exists(file));
    std::filesystem::remove(file);
}

}  // namespace
}  // namespace lab::test
