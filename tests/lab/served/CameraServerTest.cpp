#include "lab/served/CameraServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace lab::test {
namespace {

using nlohmann::json;

template <std::size_t Count>
ServerOptions Options(const std::array<const char*, Count>& arguments) {
    return ServerOptions::FromArguments(arguments);
}

TEST(ServerOptions, KeepWhatIsTheServersOwn) {
    const ServerOptions options =
        Options(std::array{"--listen", "unix:/a", "--camera", R"({"speed":"full"})", "--listen", "unix:/b"});
    EXPECT_EQ(options.others, (std::vector<std::string>{"--listen", "unix:/a", "--listen", "unix:/b"}));
    ASSERT_EQ(options.cameras.size(), 1U);
    EXPECT_EQ(options.cameras[0].speed, Speed::Full);
    EXPECT_TRUE(options.wire.empty());
}

TEST(ServerOptions, RefuseWhatMakesNoSense) {
    EXPECT_THROW(Options(std::array{"--wire"}), std::runtime_error);
    EXPECT_THROW(Options(std::array{"--camera", "kv400"}), std::exception);
    EXPECT_THROW(Options(std::array{"--camera", R"({"sped":"full"})"}), std::runtime_error);
    EXPECT_THROW(Options(std::array{"--camera", "{}", "--wire", "tcp:127.0.0.1:1"}), std::runtime_error);
}

// The command-line program at the other end of the wire, on a thread of its own.
class Stage {
  public:
    Stage() : listener_(Socket::Listen("tcp:127.0.0.1:0")) {}
    ~Stage() {
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    [[nodiscard]] std::string Place() const { return "tcp:127.0.0.1:" + std::to_string(listener_.Port()); }

    // Answers the hello with the first line, sends each other line when the one before is answered, and hangs
    // up.
    void Play(std::vector<std::string> lines) {
        thread_ = std::thread([this, lines = std::move(lines)] {
            Channel channel(Accepted());
            Keep(channel);
            for (const std::string& line : lines) {
                const std::string whole = line + '\n';
                channel.Send({reinterpret_cast<const std::uint8_t*>(whole.data()), whole.size()});
                while (&line != &lines.front() && told.back().at("event") != "done" && Keep(channel)) {
                }
            }
            isRefused = lines.size() == 1 && Keep(channel) && told.back().at("event") == "done";
        });
    }

    void Wait() { thread_.join(); }

    std::vector<json> told;
    bool isRefused = false;

  private:
    Socket Accepted() const {
        for (;;) {
            Socket socket = listener_.Accept();
            if (socket.IsOpen()) {
                return socket;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    // The next line. False when there is none and the other side is gone.
    bool Keep(Channel& channel) {
        for (;;) {
            const auto received = channel.Received();
            const auto end = std::find(received.begin(), received.end(), std::uint8_t{'\n'});
            if (end != received.end()) {
                const std::string line(received.begin(), end);
                channel.Drop(line.size() + 1);
                told.push_back(json::parse(line));
                return true;
            }
            if (!channel.Fill()) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    Socket listener_;
    std::thread thread_;
};

TEST(CameraServer, ObeysTheWireAndEndsWithIt) {
    Stage stage;
    stage.Play(
        {R"({"reply":"stage","cameras":[{"version":"1.2.3.4"}]})", R"({"command":"plug","camera":0})"});
    CameraServer server({.wire = stage.Place()}, "usbredir");
    EXPECT_EQ(server.Cameras().Count(), 1U);
    server.Run();
    stage.Wait();
    ASSERT_EQ(stage.told.size(), 3U);
    EXPECT_EQ(stage.told[0].at("event"), "hello");
    EXPECT_EQ(stage.told[0].at("source"), "usbredir");
    EXPECT_EQ(stage.told[1].at("change"), "plugged");
    EXPECT_EQ(stage.told[2].at("ok"), true);
    EXPECT_EQ(server.Cameras().At(0).Stay(), 1U);
}

TEST(CameraServer, RefusesWhatItCannotDo) {
    Stage stage;
    stage.Play({R"({"reply":"stage","cameras":[{}]})", R"({"command":"plug","camera":1})"});
    CameraServer server({.wire = stage.Place()}, "usbip");
    server.Run();
    stage.Wait();
    ASSERT_EQ(stage.told.size(), 2U);
    EXPECT_EQ(stage.told[1],
              json::parse(R"({"event":"done","command":"plug","ok":false,"why":"there is no camera 1"})"));
}

TEST(CameraServer, RefusesAStageThatIsImpossible) {
    Stage stage;
    stage.Play({R"({"reply":"stage","trace":null})"});
    EXPECT_THROW(CameraServer({.wire = stage.Place()}, "usbip"), std::runtime_error);
    stage.Wait();
    EXPECT_TRUE(stage.isRefused);
}

TEST(CameraServer, WithoutAWirePlugsItsCamerasIn) {
    testing::internal::CaptureStdout();
    CameraServer server({.cameras = std::vector<CameraSettings>(2)}, "usbip");
    EXPECT_EQ(server.Cameras().Count(), 2U);
    EXPECT_EQ(server.Cameras().At(1).Stay(), 1U);
    EXPECT_NE(testing::internal::GetCapturedStdout().find(R"("change":"plugged")"), std::string::npos);
}

TEST(CameraServer, HasOneKv400UnlessTold) {
    testing::internal::CaptureStdout();
    CameraServer server({}, "usbip");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(server.Cameras().Count(), 1U);
}

}  // namespace
}  // namespace lab::test
