#include "diagnostics/TraceProvider.h"

#include "tests/support/ImportRedirect.h"
#include "tests/support/TraceRecorder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using test_support::TracedMessage;
using test_support::TraceRecorder;

constexpr GUID kSomeGroup{0x01020304, 0x0506, 0x0708, {0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10}};
constexpr GUID kControl{0xABF4FD5B, 0xA8F5, 0x4C5D, {0x9E, 0x69, 0x48, 0xBA, 0xFA, 0x0F, 0xA1, 0xE4}};
constexpr ULONG kMessageFlags = 0x2B;

std::string Bytes(const char* text, std::size_t size) {
    return {text, size};
}

// A field of the control block, by its place.
template <typename Field>
Field ReadAt(const void* block, std::size_t offset) {
    Field field{};
    std::memcpy(&field, static_cast<const char*>(block) + offset, sizeof field);
    return field;
}

class TraceProviderTest : public testing::Test {
  protected:
    TraceProviderTest() { TraceProvider::Register(); }

    // The one message that a session at its highest level got.
    TracedMessage OnlyMessage() {
        const auto messages = traces_.Messages();
        if (messages.size() != 1) {
            ADD_FAILURE() << messages.size() << " messages";
            return {};
        }
        return messages[0];
    }

    void ExpectOnlyMessage(const GUID& group, USHORT number, const std::vector<std::string>& arguments) {
        const TracedMessage message = OnlyMessage();
        EXPECT_EQ(message.logger, TraceRecorder::kLogger);
        EXPECT_EQ(message.flags, kMessageFlags);
        EXPECT_TRUE(message.group == group);
        EXPECT_EQ(message.number, number);
        EXPECT_EQ(message.arguments, arguments);
    }

    TraceRecorder traces_;
};

TEST_F(TraceProviderTest, RegistersItsControlGuidOnce) {
    const auto registrations = traces_.Registrations();
    ASSERT_EQ(registrations.size(), 1U);
    const auto& registration = registrations[0];
    EXPECT_EQ(registration.callback, &TraceProvider::ControlCallback);
    EXPECT_TRUE(registration.controlGuid == kControl);
    EXPECT_EQ(registration.guidCount, 1U);
    EXPECT_TRUE(registration.firstGuid == kControl);
    EXPECT_EQ(registration.firstGuidHandle, nullptr);
    EXPECT_FALSE(registration.hasMofImagePath);
    EXPECT_FALSE(registration.hasMofResourceName);
}

TEST_F(TraceProviderTest, HandsItsControlBlockToTheCallbackAndKeepsTheHandleInIt) {
    const auto registration = traces_.Registrations().at(0);
    const void* const block = registration.context;
    EXPECT_EQ(static_cast<const void*>(registration.registrationHandle),
              static_cast<const void*>(static_cast<const char*>(block) + 8));
    EXPECT_EQ(ReadAt<void*>(block, 0), nullptr);
    EXPECT_EQ(ReadAt<std::uint64_t>(block, 8), TraceRecorder::kRegistrationHandle);
    EXPECT_EQ(ReadAt<std::uint64_t>(block, 16), 0U);
    EXPECT_EQ(ReadAt<std::uint8_t>(block, 24), 1U);
    EXPECT_EQ(ReadAt<std::uint8_t>(block, 25), 0U);
    EXPECT_EQ(ReadAt<std::uint16_t>(block, 26), 0U);
    EXPECT_EQ(ReadAt<std::uint32_t>(block, 28), 0U);
    EXPECT_TRUE(*ReadAt<const GUID*>(block, 32) == kControl);
}

TEST_F(TraceProviderTest, KeepsTheSessionInItsControlBlock) {
    traces_.EnableSession(5, 0xABCD0001);
    const void* const block = traces_.Registrations().at(0).context;
    EXPECT_EQ(ReadAt<std::uint64_t>(block, 16), TraceRecorder::kLogger);
    EXPECT_EQ(ReadAt<std::uint8_t>(block, 24), 1U);
    EXPECT_EQ(ReadAt<std::uint8_t>(block, 25), 5U);
    EXPECT_EQ(ReadAt<std::uint16_t>(block, 26), 0U);
    EXPECT_EQ(ReadAt<std::uint32_t>(block, 28), 0xABCD0001U);
}

TEST_F(TraceProviderTest, StartsWithAClearedControlBlock) {
    traces_.EnableSession(255);
    traces_.DisableSession();
    auto* const block = static_cast<TraceControlBlock*>(traces_.Registrations().at(0).context);
    block->next = block;
    block->registration = 1;
    block->logger = 2;
    block->flagWordCount = 3;
    block->level = 4;
    block->options = 5;
    block->flags = 6;
    block->controlGuid = nullptr;

    traces_.SetRegistrationResult(ERROR_ACCESS_DENIED);  // nothing but the provider writes the block
    TraceProvider::Register();
    EXPECT_EQ(block->next, nullptr);
    EXPECT_EQ(block->registration, 0U);
    EXPECT_EQ(block->logger, 0U);
    EXPECT_EQ(block->flagWordCount, 1U);
    EXPECT_EQ(block->level, 0U);
    EXPECT_EQ(block->options, 0U);
    EXPECT_EQ(block->flags, 0U);
    ASSERT_NE(block->controlGuid, nullptr);
    EXPECT_TRUE(*block->controlGuid == kControl);
}

TEST_F(TraceProviderTest, RunsUntracedWhenItCannotRegister) {
    traces_.SetRegistrationResult(ERROR_ACCESS_DENIED);
    EXPECT_NO_THROW(TraceProvider::Register());
    EXPECT_EQ(traces_.Registrations().size(), 2U);
    TraceProvider::Emit(TraceLevel::Critical, kSomeGroup, 10);
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_F(TraceProviderTest, JoinsASessionThatWasEnabledBeforeItRegistered) {
    traces_.EnableSession(4);
    TraceProvider::Register();
    TraceProvider::Emit(TraceLevel::Information, kSomeGroup, 10);
    EXPECT_EQ(traces_.Messages().size(), 1U);
}

TEST_F(TraceProviderTest, NeverUnregisters) {
    EXPECT_THROW(test_support::ImportRedirect("UnregisterTraceGuids", TraceProvider::Register),
                 std::runtime_error);
}

void EmitEverything() {
    TraceProvider::Emit(TraceLevel::Critical, kSomeGroup, 1);
    TraceProvider::EmitCode(TraceLevel::Critical, kSomeGroup, 2, 5);
    TraceProvider::EmitText(TraceLevel::Critical, kSomeGroup, 3, "text");
    TraceProvider::EmitUsbArrival(TraceLevel::Critical, kSomeGroup, 4, L"class");
    TraceProvider::EmitScope("==>", "Function");
}

TEST_F(TraceProviderTest, EmitsNothingWithoutASession) {
    EmitEverything();
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_F(TraceProviderTest, EmitsNothingAfterTheSessionHasEnded) {
    traces_.EnableSession(255);
    traces_.DisableSession();
    EmitEverything();
    EXPECT_TRUE(traces_.Messages().empty());
}

// What was never registered can be seen in a new process only.
TEST(TraceProviderDeathTest, EmitsNothingBeforeItIsRegistered) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto messagesOfAnUnregisteredProvider = [] {
        TraceRecorder traces;
        traces.EnableSession(255);
        EmitEverything();
        return static_cast<int>(traces.Messages().size() + traces.Registrations().size());
    };
    EXPECT_EXIT(std::_Exit(messagesOfAnUnregisteredProvider()), testing::ExitedWithCode(0), "");
}

TEST_F(TraceProviderTest, EmitsEverythingToASessionAtItsHighestLevel) {
    traces_.EnableSession(255);
    EmitEverything();
    EXPECT_EQ(traces_.Messages().size(), 5U);
}

// A session's flags: only bit 0 counts.
class SessionFlags : public TraceProviderTest,
                     public testing::WithParamInterface<std::pair<ULONG, std::size_t>> {};

TEST_P(SessionFlags, DecideWhetherAnythingIsEmitted) {
    const auto [flags, expectedMessages] = GetParam();
    traces_.EnableSession(255, flags);
    EmitEverything();
    EXPECT_EQ(traces_.Messages().size(), expectedMessages);
    EXPECT_EQ(TraceProvider::IsEnabled(TraceLevel::Critical), expectedMessages != 0);
}

INSTANTIATE_TEST_SUITE_P(BitZero, SessionFlags,
                         testing::Values(std::pair{0x00000000U, 0U}, std::pair{0x00000001U, 5U},
                                         std::pair{0x00000002U, 0U}, std::pair{0x00000003U, 5U},
                                         std::pair{0xFFFFFFFEU, 0U}, std::pair{0xFFFFFFFFU, 5U}));

// A session's level and a message's: the message goes out when the session's is as high or higher.
struct Levels {
    UCHAR session;
    TraceLevel message;
    bool emitted;
};

class SessionLevel : public TraceProviderTest, public testing::WithParamInterface<Levels> {};

TEST_P(SessionLevel, LetsThroughItsOwnLevelAndThoseBelow) {
    const Levels levels = GetParam();
    traces_.EnableSession(levels.session);
    EXPECT_EQ(TraceProvider::IsEnabled(levels.message), levels.emitted);

    TraceProvider::Emit(levels.message, kSomeGroup, 1);
    TraceProvider::EmitCode(levels.message, kSomeGroup, 2, 5);
    TraceProvider::EmitText(levels.message, kSomeGroup, 3, "text");
    TraceProvider::EmitUsbArrival(levels.message, kSomeGroup, 4, L"class");
    const std::vector<USHORT> all{1, 2, 3, 4};
    EXPECT_EQ(traces_.Numbers(kSomeGroup), levels.emitted ? all : std::vector<USHORT>{});
}

INSTANTIATE_TEST_SUITE_P(
    Levels, SessionLevel,
    testing::Values(Levels{0, TraceLevel::Critical, false}, Levels{1, TraceLevel::Critical, true},
                    Levels{1, TraceLevel::Error, false}, Levels{2, TraceLevel::Critical, true},
                    Levels{2, TraceLevel::Error, true}, Levels{2, TraceLevel::Information, false},
                    Levels{3, TraceLevel::Information, false}, Levels{4, TraceLevel::Critical, true},
                    Levels{4, TraceLevel::Error, true}, Levels{4, TraceLevel::Information, true},
                    Levels{4, TraceLevel::Scope, false}, Levels{7, TraceLevel::Scope, false},
                    Levels{8, TraceLevel::Scope, true}, Levels{8, TraceLevel::Information, true},
                    Levels{255, TraceLevel::Scope, true}));

TEST_F(TraceProviderTest, EmitsScopeMessagesFromLevelFourOn) {
    traces_.EnableSession(3);
    TraceProvider::EmitScope("==>", "Function");
    EXPECT_TRUE(traces_.Messages().empty());
    traces_.EnableSession(4);
    TraceProvider::EmitScope("==>", "Function");
    EXPECT_EQ(traces_.Messages().size(), 1U);
}

TEST_F(TraceProviderTest, NamesItsLevelsAsSessionsDo) {
    EXPECT_EQ(static_cast<int>(TraceLevel::Critical), 1);
    EXPECT_EQ(static_cast<int>(TraceLevel::Error), 2);
    EXPECT_EQ(static_cast<int>(TraceLevel::Information), 4);
    EXPECT_EQ(static_cast<int>(TraceLevel::Scope), 8);
}

TEST_F(TraceProviderTest, SendsAPlainMessageWithoutArguments) {
    traces_.EnableSession(4);
    TraceProvider::Emit(TraceLevel::Information, kSomeGroup, 12);
    ExpectOnlyMessage(kSomeGroup, 12, {});
}

TEST_F(TraceProviderTest, SendsACodeAsFourBytes) {
    traces_.EnableSession(4);
    TraceProvider::EmitCode(TraceLevel::Error, kSomeGroup, 14, 0x80070005);
    ExpectOnlyMessage(kSomeGroup, 14, {Bytes("\x05\x00\x07\x80", 4)});
}

TEST_F(TraceProviderTest, SendsATextWithItsTerminator) {
    traces_.EnableSession(4);
    TraceProvider::EmitText(TraceLevel::Information, kSomeGroup, 23, "5.10.3.0");
    ExpectOnlyMessage(kSomeGroup, 23, {Bytes("5.10.3.0\0", 9)});
}

TEST_F(TraceProviderTest, SendsAnEmptyTextAsItsTerminator) {
    traces_.EnableSession(4);
    TraceProvider::EmitText(TraceLevel::Information, kSomeGroup, 23, "");
    ExpectOnlyMessage(kSomeGroup, 23, {Bytes("\0", 1)});
}

TEST_F(TraceProviderTest, SendsANullTextAsTheWordNull) {
    traces_.EnableSession(4);
    TraceProvider::EmitText(TraceLevel::Information, kSomeGroup, 23, nullptr);
    ExpectOnlyMessage(kSomeGroup, 23, {Bytes("NULL\0", 5)});
}

// The label's length is 2, and the wide text is measured as a narrow one, which ends at the high byte of "{".
TEST_F(TraceProviderTest, SendsAUsbArrivalWithTwoBytesOfEachText) {
    traces_.EnableSession(4);
    TraceProvider::EmitUsbArrival(TraceLevel::Information, kSomeGroup, 13,
                                  L"{A5DCBF10-6530-11D2-901F-00C04FB951ED}");
    ExpectOnlyMessage(kSomeGroup, 13, {"Ge", Bytes("{\0", 2)});
}

TEST_F(TraceProviderTest, MeasuresTheClassOfAUsbArrivalUpToItsFirstZeroByte) {
    traces_.EnableSession(4);
    TraceProvider::EmitUsbArrival(TraceLevel::Information, kSomeGroup, 13, L"\x4241\x0043");
    TraceProvider::EmitUsbArrival(TraceLevel::Information, kSomeGroup, 13, L"");
    const auto messages = traces_.Messages();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].arguments, (std::vector<std::string>{"Ge", Bytes("ABC\0", 4)}));
    EXPECT_EQ(messages[1].arguments, (std::vector<std::string>{"Ge", Bytes("\0", 1)}));
}

TEST_F(TraceProviderTest, SendsANullClassOfAUsbArrivalAsTheWordNull) {
    traces_.EnableSession(4);
    TraceProvider::EmitUsbArrival(TraceLevel::Information, kSomeGroup, 13, nullptr);
    ExpectOnlyMessage(kSomeGroup, 13, {"Ge", Bytes("NULL\0", 5)});
}

const char* labelSent = nullptr;

ULONG __cdecl KeepTheLabel(TRACEHANDLE, ULONG, const GUID*, USHORT, const char* label, ...) {
    labelSent = label;
    return ERROR_SUCCESS;
}

// Only two of its bytes are sent, but it is the whole label that they are taken from.
TEST_F(TraceProviderTest, LabelsAUsbArrival) {
    traces_.EnableSession(4);
    const test_support::ImportRedirect redirect("TraceMessage", KeepTheLabel);
    TraceProvider::EmitUsbArrival(TraceLevel::Information, kSomeGroup, 13, nullptr);
    EXPECT_STREQ(labelSent, "Generic USB Device Arrival");
}

TEST_F(TraceProviderTest, SendsAScopeAsFourTexts) {
    traces_.EnableSession(8);
    TraceProvider::EmitScope("<==", "FDUService::OnStart");
    ExpectOnlyMessage(
        test_support::kScopeGroup, 12,
        {Bytes("<==\0", 4), Bytes("Unknown\0", 8), Bytes("FDUService::OnStart\0", 20), Bytes(" \0", 2)});
}

// The control callback, called as the system does, on a block of the test's own.
class ControlCallback : public TraceProviderTest {
  protected:
    static constexpr auto kEnable = static_cast<WMIDPREQUESTCODE>(4);
    static constexpr auto kDisable = static_cast<WMIDPREQUESTCODE>(5);

    ControlCallback() {
        for (TraceControlBlock* block : {&block_, &linked_}) {
            block->logger = 0x1111;
            block->level = 2;
            block->flags = 0x3333;
        }
        block_.next = &linked_;
    }

    ULONG Request(WMIDPREQUESTCODE request) {
        ULONG size = 48;
        return TraceProvider::ControlCallback(request, &block_, &size, traces_.SessionBuffer());
    }

    static void Expect(const TraceControlBlock& block, TRACEHANDLE logger, UCHAR level, ULONG flags) {
        EXPECT_EQ(block.logger, logger);
        EXPECT_EQ(block.level, level);
        EXPECT_EQ(block.flags, flags);
    }
    static void ExpectUntouched(const TraceControlBlock& block) { Expect(block, 0x1111, 2, 0x3333); }

    TraceControlBlock block_{};
    TraceControlBlock linked_{};
};

TEST_F(ControlCallback, TakesTheSessionFromAnEnableRequest) {
    traces_.EnableSession(200, 0x80000001);
    EXPECT_EQ(Request(kEnable), 0U);
    Expect(block_, TraceRecorder::kLogger, 200, 0x80000001);
    ExpectUntouched(linked_);
}

// The session behind the buffer is still at level 200: a disable request does not look at it.
TEST_F(ControlCallback, ClearsEverythingOnADisableRequest) {
    traces_.EnableSession(200, 0x80000001);
    EXPECT_EQ(Request(kDisable), 0U);
    Expect(block_, 0, 0, 0);
    ExpectUntouched(linked_);
}

TEST_F(ControlCallback, RefusesEveryOtherRequest) {
    traces_.EnableSession(200);
    for (const int request : {0, 1, 2, 3, 6, 7, 8, 9, 11, -1}) {
        EXPECT_EQ(Request(static_cast<WMIDPREQUESTCODE>(request)), 87U) << request;
        ExpectUntouched(block_);
        ExpectUntouched(linked_);
    }
}

TEST_F(ControlCallback, StoresIntoTheLinkedBlockWhenOptionsBitOneIsSet) {
    traces_.EnableSession(200, 0x80000001);
    block_.options = 2;
    EXPECT_EQ(Request(kEnable), 0U);
    ExpectUntouched(block_);
    Expect(linked_, TraceRecorder::kLogger, 200, 0x80000001);

    EXPECT_EQ(Request(kDisable), 0U);
    ExpectUntouched(block_);
    Expect(linked_, 0, 0, 0);
}

TEST_F(ControlCallback, StoresIntoItsOwnBlockWhenOnlyOtherOptionsAreSet) {
    traces_.EnableSession(200, 0x80000001);
    block_.options = 0xFFFD;
    EXPECT_EQ(Request(kEnable), 0U);
    Expect(block_, TraceRecorder::kLogger, 200, 0x80000001);
    ExpectUntouched(linked_);
}

TEST_F(ControlCallback, StoresIntoItsOwnBlockWhenOptionsBitOneIsSetButNothingIsLinked) {
    traces_.EnableSession(200, 0x80000001);
    block_.options = 2;
    block_.next = nullptr;
    EXPECT_EQ(Request(kEnable), 0U);
    Expect(block_, TraceRecorder::kLogger, 200, 0x80000001);
}

}  // namespace
