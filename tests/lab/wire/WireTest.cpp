#include <winsock2.h>

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/wire/Wire.h"
#include "tests/lab/wire/WirePeer.h"

using lab::Wire;
using nlohmann::json;

TEST(Wire, IsNotThereWhenNoPortIsNamed) {
    EXPECT_EQ(Wire::Connect("rig"), nullptr);
}

TEST(Wire, SaysHelloAndTakesTheStage) {
    WirePeer peer;
    const auto wire = Wire::Connect("rig");
    ASSERT_NE(wire, nullptr);
    EXPECT_EQ(wire->Stage(), (json{{"reply", "stage"}}));
    const json hello = peer.NextEvent();
    EXPECT_EQ(hello.at("event"), "hello");
    EXPECT_EQ(hello.at("source"), "rig");
    EXPECT_EQ(hello.at("pid"), GetCurrentProcessId());
    EXPECT_TRUE(hello.at("command_line").is_string());
}

TEST(Wire, HandsCommandsOverAndRefusesThoseWhoseHandlerThrows) {
    WirePeer peer;
    const auto wire = Wire::Connect("rig");
    ASSERT_NE(wire, nullptr);
    (void)peer.NextEvent();
    wire->Start(
        [&](const json& command) {
            if (command.at("command") == "bad") {
                throw std::runtime_error("no good");
            }
            wire->Send(lab::DoneEvent(command.at("command").get<std::string>()));
        },
        [] {});
    peer.Send({{"command", "one"}});
    peer.Send({{"command", "bad"}});
    peer.Send({{"no", "command"}});
    peer.Send(json::array());
    EXPECT_EQ(peer.NextEvent(), (json{{"event", "done"}, {"command", "one"}, {"ok", true}}));
    EXPECT_EQ(peer.NextEvent(),
              (json{{"event", "done"}, {"command", "bad"}, {"ok", false}, {"why", "no good"}}));
    EXPECT_EQ(peer.NextEvent().at("ok"), false);
    EXPECT_EQ(peer.NextEvent().at("why"), "not a JSON object");
}

TEST(Wire, KeepsLinesWholeWhenManyThreadsSend) {
    constexpr int kThreads = 4;
    constexpr int kMessages = 50;
    WirePeer peer;
    const auto wire = Wire::Connect("rig");
    ASSERT_NE(wire, nullptr);
    (void)peer.NextEvent();
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&wire, thread] {
            for (int message = 0; message < kMessages; ++message) {
                wire->Send(
                    {{"event", "n"}, {"of", thread}, {"text", std::string(5000, 'x')}, {"n", message}});
            }
        });
    }
    std::vector<int> next(kThreads, 0);
    for (int count = 0; count < kThreads * kMessages; ++count) {
        const json event = peer.NextEvent();
        ASSERT_FALSE(event.is_null());
        EXPECT_EQ(event.at("n"), next[event.at("of").get<std::size_t>()]++);
    }
}

TEST(Wire, TellsTheEndOfTheConnection) {
    WirePeer peer;
    const auto wire = Wire::Connect("rig");
    ASSERT_NE(wire, nullptr);
    std::promise<void> closed;
    wire->Start([](const json&) {}, [&] { closed.set_value(); });
    peer.Close();
    EXPECT_EQ(closed.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST(Wire, ItsDestructorEndsTheReaderWithoutTellingAnEnd) {
    WirePeer peer;
    auto wire = Wire::Connect("rig");
    ASSERT_NE(wire, nullptr);
    bool told = false;
    wire->Start([](const json&) {}, [&] { told = true; });
    wire.reset();
    EXPECT_FALSE(told);
}
