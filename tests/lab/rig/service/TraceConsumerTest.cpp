#include <gtest/gtest.h>

#include <thread>

#include <nlohmann/json.hpp>

#include "lab/rig/service/TraceConsumer.h"

using lab::rig::TraceConsumer;
using nlohmann::json;

namespace {

const json kCommand = json::parse(
    R"({"command": "trace-message", "group": "{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}", "number": 23, "process": 32,
        "arguments": ["35 2e 31 00", "ab"]})");

struct Told {
    std::vector<USHORT> numbers;
    std::vector<std::uint8_t> payload;
    ULONG process = 0;
    USHORT flags = 0;
};

void WINAPI Listen(EVENT_RECORD* record) {
    auto& told = *static_cast<Told*>(record->UserContext);
    told.numbers.push_back(record->EventHeader.EventDescriptor.Id);
    const auto* const bytes = static_cast<const std::uint8_t*>(record->UserData);
    told.payload.assign(bytes, bytes + record->UserDataLength);
    told.process = record->EventHeader.ProcessId;
    told.flags = record->EventHeader.Flags;
}

}  // namespace

TEST(TraceConsumer, TellsMessagesInTheirOrderUntilTheSessionEnds) {
    TraceConsumer consumer;
    consumer.Begin();
    Told told;
    std::thread listening([&] { consumer.Process(&Listen, &told); });
    auto message = TraceConsumer::MessageOf(kCommand);
    for (const USHORT number : {USHORT{3}, USHORT{1}, USHORT{2}}) {
        message.number = number;
        consumer.Tell(message);
    }
    consumer.End();
    listening.join();
    EXPECT_EQ(told.numbers, (std::vector<USHORT>{3, 1, 2}));
    EXPECT_EQ(told.payload, (std::vector<std::uint8_t>{0x35, 0x2E, 0x31, 0x00, 0xAB}));
    EXPECT_EQ(told.process, 32U);
    EXPECT_EQ(told.flags, EVENT_HEADER_FLAG_TRACE_MESSAGE);
}

TEST(TraceConsumer, LosesWhatComesWithoutASession) {
    TraceConsumer consumer;
    consumer.Tell(TraceConsumer::MessageOf(kCommand));
    consumer.Begin();
    consumer.End();
    consumer.Tell(TraceConsumer::MessageOf(kCommand));
    Told told;
    consumer.Process(&Listen, &told);
    EXPECT_TRUE(told.numbers.empty());
}

TEST(TraceConsumer, RefusesAMessageThatMakesNoSense) {
    const json wrong{{"group", "no group"}, {"number", 70000}, {"arguments", json::array({"x"})}};
    for (const auto& [field, value] : wrong.items()) {
        json command = kCommand;
        command[field] = value;
        EXPECT_THROW(static_cast<void>(TraceConsumer::MessageOf(command)), std::exception) << field;
    }
}
