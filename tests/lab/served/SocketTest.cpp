#include "lab/served/Channel.h"
#include "lab/served/Socket.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Pair {
    Socket left;
    Socket right;
};

// What crosses the machine takes its time: until `call` is true, ten seconds at most.
template <typename Call>
bool Becomes(const Call& call) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        if (call()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

Pair Connected() {
    const Socket listener = Socket::Listen("tcp:127.0.0.1:0");
    Pair pair;
    pair.left = Socket::Connect("tcp:127.0.0.1:" + std::to_string(listener.Port()));
    EXPECT_TRUE(Becomes([&] {
        pair.right = listener.Accept();
        return pair.right.IsOpen();
    }));
    return pair;
}

TEST(Socket, RefusesAPlaceThatMakesNoSense) {
    for (const char* const place : {"", "tcp:", "tcp:127.0.0.1", "tcp:127.0.0.1:", "tcp:127.0.0.1:70000",
                                    "tcp:localhost:80", "tcp:127.0.0.1:80x", "udp:127.0.0.1:80", "unix:"}) {
        EXPECT_THROW(static_cast<void>(Socket::Listen(place)), std::runtime_error) << place;
        EXPECT_THROW(static_cast<void>(Socket::Connect(place)), std::runtime_error) << place;
    }
}

TEST(Socket, TellsWhoIsNotThere) {
    std::uint16_t port = 0;
    {
        const Socket listener = Socket::Listen("tcp:127.0.0.1:0");
        port = listener.Port();
    }
    const std::string place = "tcp:127.0.0.1:" + std::to_string(port);
    try {
        static_cast<void>(Socket::Connect(place));
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "cannot connect to " + place);
    }
}

TEST(Socket, AcceptsNobodyWhenNobodyHasCome) {
    const Socket listener = Socket::Listen("tcp:127.0.0.1:0");
    EXPECT_FALSE(listener.Accept().IsOpen());
}

TEST(Socket, CarriesBytesWithoutBlocking) {
    const Pair pair = Connected();
    std::array<std::uint8_t, 8> buffer{};
    EXPECT_EQ(pair.right.Receive(buffer), 0U);
    EXPECT_EQ(pair.left.Send(Bytes{1, 2, 3}), 3U);
    EXPECT_TRUE(Becomes([&] { return pair.right.Receive(buffer) == 3U; }));
    EXPECT_EQ(buffer[2], 3);
}

TEST(Socket, TellsThatTheOtherSideIsGone) {
    Pair pair = Connected();
    pair.left.Close();
    EXPECT_FALSE(pair.left.IsOpen());
    std::array<std::uint8_t, 8> buffer{};
    EXPECT_TRUE(Becomes([&] { return !pair.right.Receive(buffer).has_value(); }));
}

TEST(Channel, KeepsWhatTheSocketDoesNotTake) {
    constexpr std::size_t kMuch = 8 * 1024 * 1024;
    Pair pair = Connected();
    Channel sender(std::move(pair.left));
    Channel receiver(std::move(pair.right));
    // Some systems take any one buffer as a whole, and nothing behind it.
    std::size_t sent = 0;
    for (unsigned time = 0; time < 16 && !sender.WantsToSend(); ++time) {
        sender.Send(Bytes(kMuch, 0x5A));
        sent += kMuch;
    }
    EXPECT_TRUE(sender.WantsToSend());
    EXPECT_TRUE(
        Becomes([&] { return receiver.Fill() && sender.Flush() && receiver.Received().size() == sent; }));
    EXPECT_FALSE(sender.WantsToSend());
    receiver.Drop(sent - 1);
    EXPECT_EQ(Bytes(receiver.Received().begin(), receiver.Received().end()), Bytes{0x5A});
}

TEST(Channel, ReadsWhatCameBeforeTheEnd) {
    Pair pair = Connected();
    Channel receiver(std::move(pair.right));
    {
        Channel sender(std::move(pair.left));
        sender.Send(Bytes{7, 8});
    }
    EXPECT_TRUE(Becomes([&] { return !receiver.Fill(); }));
    EXPECT_EQ(receiver.Received().size(), 2U);
}

}  // namespace
}  // namespace lab::test
