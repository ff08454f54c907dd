#include "lab/guest/Helper.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "lab/guest/FileDescriptor.h"
#include "tests/lab/guest/TemporaryPlaces.h"

using lab::guest::FileDescriptor;
using lab::guest::Helper;
using lab::guest::HostPort;
using nlohmann::json;

namespace {

constexpr int kPatienceMs = 20'000;

// The helper on a thread of its own, with the test at the host's end of its port.
class HelperTest : public testing::Test {
  protected:
    HelperTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        host_.emplace(FileDescriptor(ends[0]));
        thread_ = std::jthread([this, end = ends[1]] {
            Helper(HostPort(FileDescriptor(end)), places_.Places(), std::nullopt).Serve();
        });
    }
    ~HelperTest() override { host_.reset(); }

    // What the helper says next; null when it says nothing, or has closed its end.
    json Hear() {
        for (;;) {
            if (const auto line = host_->NextLine()) {
                return json::parse(*line);
            }
            pollfd waiting{host_->Descriptor(), POLLIN, 0};
            if (poll(&waiting, 1, kPatienceMs) <= 0 || !host_->Receive()) {
                return nullptr;
            }
        }
    }
    json Ask(const json& command) {
        host_->Send(command);
        return Hear();
    }

    TemporaryPlaces places_;
    std::optional<HostPort> host_;
    std::jthread thread_;
};

}  // namespace

TEST_F(HelperTest, SaysHello) {
    const json hello = Hear();
    EXPECT_EQ(hello.at("event"), "hello");
    EXPECT_EQ(hello.at("source"), "guest");
    EXPECT_EQ(hello.at("pid"), getpid());
    EXPECT_FALSE(hello.at("kernel").get<std::string>().empty());
}

TEST_F(HelperTest, AnswersCommandsInTheirOrder) {
    (void)Hear();
    host_->Send({{"reply", "stage"}});
    host_->Send({{"command", "fly"}});
    host_->Send({{"command", "devices"}});
    EXPECT_EQ(
        Hear(),
        (json{{"event", "done"}, {"command", "fly"}, {"ok", false}, {"why", "there is no such command"}}));
    EXPECT_EQ(Hear(),
              (json{{"event", "done"}, {"command", "devices"}, {"ok", true}, {"devices", json::array()}}));
}

TEST_F(HelperTest, RunsAProgramAndServesMeanwhile) {
    (void)Hear();
    const json command{{"command", "run"},
                       {"program", "sh"},
                       {"arguments", {"-c", "sleep 0.3; echo done"}},
                       {"limit_ms", 60'000}};
    host_->Send(command);
    EXPECT_EQ(Ask({{"command", "devices"}}).at("command"), "devices");
    EXPECT_EQ(Ask(command).at("why"), "another program runs");
    EXPECT_EQ(Hear(), (json{{"event", "done"},
                            {"command", "run"},
                            {"ok", true},
                            {"status", 0},
                            {"output", "done\n"},
                            {"is_cut", false},
                            {"is_out_of_time", false}}));
}

TEST_F(HelperTest, KillsAProgramWhoseTimeIsOver) {
    (void)Hear();
    const json answer =
        Ask({{"command", "run"}, {"program", "sleep"}, {"arguments", {"1000"}}, {"limit_ms", 100}});
    EXPECT_EQ(answer.at("is_out_of_time"), true);
    EXPECT_EQ(answer.at("status"), -9);
}

TEST_F(HelperTest, TellsThatAProgramIsNotThere) {
    (void)Hear();
    const json command{
        {"command", "run"}, {"program", "fly"}, {"arguments", json::array()}, {"limit_ms", 1000}};
    EXPECT_EQ(Ask(command).at("errno"), "ENOENT");
}

TEST_F(HelperTest, LoadsTheImagesModulesAlone) {
    (void)Hear();
    EXPECT_EQ(Ask({{"command", "load"}, {"modules", "empty"}}).at("ok"), true);
    EXPECT_EQ(Ask({{"command", "load"}, {"modules", "other"}}).at("why"), "the image has no such modules");
    EXPECT_EQ(Ask({{"command", "load"}, {"modules", "odd"}}).at("errno"), "ENOENT");
}

TEST_F(HelperTest, TellsThatThereIsNoKernelLog) {
    (void)Hear();
    EXPECT_EQ(Ask({{"command", "kernel-log"}, {"since", 0}}).at("errno"), "ENOENT");
    EXPECT_EQ(Ask({{"command", "kernel-log"}}).at("why"), "since is missing");
}

TEST_F(HelperTest, EndsWhenItIsTold) {
    (void)Hear();
    EXPECT_EQ(Ask({{"command", "power-off"}}).at("ok"), true);
    EXPECT_EQ(Hear(), nullptr);
}

TEST_F(HelperTest, EndsWithItsHost) {
    (void)Hear();
    host_.reset();
    thread_.join();
}

TEST(Helper, NeedsItsModules) {
    TemporaryPlaces places;
    places.Remove("modules/sets");
    EXPECT_THROW(Helper(HostPort(FileDescriptor()), places.Places(), std::nullopt), std::runtime_error);
}
