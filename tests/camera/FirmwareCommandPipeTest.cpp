#include "camera/FirmwareCommandPipe.h"

#include "tests/support/FakeClock.h"
#include "tests/support/FakeKsControl.h"
#include "tests/support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <typeinfo>
#include <vector>

namespace {

using test_support::FakeClock;
using test_support::FakeKsControl;
using test_support::KsCall;
using test_support::VirtualSlot;

constexpr GUID kUnit{0xC9606CCB, 0x594C, 0x4D25, {0xAF, 0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95}};
constexpr HRESULT kDeviceGone = static_cast<HRESULT>(0x8007048F);

// The property set in memory order, control 1, and the flags.
std::vector<BYTE> CommandControl(BYTE flags) {
    return {0xCB, 0x6C, 0x60, 0xC9, 0x4C, 0x59, 0x25, 0x4D, 0xAF,  0x47, 0xCC, 0xC4,
            0x96, 0x43, 0x59, 0x95, 1,    0,    0,    0,    flags, 0,    0,    0};
}

using CheckedCopy = errno_t(__cdecl*)(void*, std::size_t, const void*, std::size_t);

}  // namespace

// mingw-w64 looks the runtime's checked copy up when it is first called and keeps it here; it is no entry of
// the import table.
extern "C" CheckedCopy __imp_memcpy_s;

namespace {

// Sees every checked copy and has the runtime make it.
class CheckedCopyRecorder {
  public:
    CheckedCopyRecorder() {
        nullDestinations_ = 0;
        // The first call makes the runtime look the function up, and write where it is.
        char byte = 0;
        memcpy_s(&byte, sizeof byte, "", sizeof byte);
        original_ = __imp_memcpy_s;
        __imp_memcpy_s = &Copy;
    }
    ~CheckedCopyRecorder() { __imp_memcpy_s = original_; }

    CheckedCopyRecorder(const CheckedCopyRecorder&) = delete;
    CheckedCopyRecorder& operator=(const CheckedCopyRecorder&) = delete;

    int NullDestinations() const { return nullDestinations_; }

  private:
    static errno_t __cdecl Copy(void* destination, std::size_t room, const void* source, std::size_t size) {
        nullDestinations_ += destination == nullptr ? 1 : 0;
        return original_(destination, room, source, size);
    }

    static inline CheckedCopy original_ = nullptr;
    static inline int nullDestinations_ = 0;
};

// A pipe on a control that answers the reads with a reply of the test's.
class FirmwareCommandPipeTest : public ::testing::Test {
  protected:
    FirmwareCommandPipeTest() {
        control_.SetAnswer([this](const KsCall& call) { return Answer(call); });
        SetReply(0x1E, 1024);
    }

    void SetReply(std::uint32_t echo, ULONG bytesReturned) {
        std::memcpy(reply_.data(), &echo, sizeof echo);
        bytesReturned_ = bytesReturned;
    }

    // Both as plain properties of 1024 bytes with a cleared count, in buffers of their own.
    void ExpectAWriteThenARead() const {
        const auto calls = control_.Calls();
        ASSERT_EQ(calls.size(), 2u);
        EXPECT_EQ(calls[0].descriptor, CommandControl(2));
        EXPECT_EQ(calls[1].descriptor, CommandControl(1));
        for (const KsCall& call : calls) {
            EXPECT_EQ(call.operation, KsCall::Operation::Property);
            EXPECT_EQ(call.dataLength, 1024u);
            EXPECT_NE(call.bytesReturned, nullptr);
            EXPECT_EQ(call.bytesReturnedBefore, 0u);
        }
        EXPECT_NE(calls[1].data, calls[0].data);
    }

    std::size_t Writes() const { return CountOf(2); }
    std::size_t Reads() const { return CountOf(1); }
    std::vector<BYTE> Written() const { return control_.Calls().at(0).dataBefore; }
    std::vector<BYTE> WrittenHead() const {
        const auto frame = Written();
        return {frame.begin(), frame.begin() + 24};
    }

    FakeClock clock_;
    FakeKsControl control_;
    FirmwareCommandPipe pipe_{&control_, kUnit, 1};

    HRESULT writeResult_ = S_OK;
    HRESULT readResult_ = S_OK;
    std::array<BYTE, 1024> reply_{};
    ULONG bytesReturned_ = 0;
    std::vector<ULONGLONG> callTimes_;

  private:
    HRESULT Answer(const KsCall& call) {
        callTimes_.push_back(clock_.Elapsed());
        if (call.Flags() == 2) {
            return writeResult_;
        }
        std::memcpy(call.data, reply_.data(), std::min<std::size_t>(call.dataLength, reply_.size()));
        *call.bytesReturned = bytesReturned_;
        return readResult_;
    }

    std::size_t CountOf(ULONG flags) const {
        const auto calls = control_.Calls();
        return static_cast<std::size_t>(std::count_if(
            calls.begin(), calls.end(), [flags](const KsCall& call) { return call.Flags() == flags; }));
    }
};

using FirmwareCommandPipeSendCommand = FirmwareCommandPipeTest;

class FirmwareCommandPipeSendCommandAndRead : public FirmwareCommandPipeTest {
  protected:
    FirmwareCommandPipeSendCommandAndRead() { SetReply(0x10, 1024); }
};

TEST(FirmwareCommandPipe, HasItsOperationsInTheirSlotsWithTheDestructorLast) {
    EXPECT_EQ(VirtualSlot(&IFirmwareCommandPipe::SendCommand), 0u);
    EXPECT_EQ(VirtualSlot(&IFirmwareCommandPipe::SendCommandAndRead), 1u);
}

TEST(FirmwareCommandPipe, IsThePipeInterfaceFirstThenTheControlAndNothingMore) {
    FakeKsControl control;
    FirmwareCommandPipe pipe(&control, kUnit, 1);

    EXPECT_EQ(static_cast<void*>(static_cast<IFirmwareCommandPipe*>(&pipe)), static_cast<void*>(&pipe));
    EXPECT_EQ(sizeof(FirmwareCommandPipe), sizeof(IFirmwareCommandPipe) + sizeof(UvcCommand));
}

TEST(FirmwareCommandPipe, ReleasesTheControlWhenDroppedThroughItsInterface) {
    FakeKsControl control;
    std::shared_ptr<IFirmwareCommandPipe> pipe = std::make_shared<FirmwareCommandPipe>(&control, kUnit, 1);
    EXPECT_EQ(control.References(), 1);

    pipe.reset();

    EXPECT_EQ(control.References(), 0);
}

TEST_F(FirmwareCommandPipeSendCommand, WritesThenReadsTheControlWithPlainProperties) {
    EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 0, 1, 0, 0, 0), S_OK);

    ExpectAWriteThenARead();
}

TEST_F(FirmwareCommandPipeSendCommand, SendsTheDfuModeCommandAsTheFirmwareKnowsIt) {
    EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 0, 1, 0, 0, 0), S_OK);

    EXPECT_EQ(WrittenHead(), (std::vector<BYTE>{20, 0, 0xAB, 0xCD, 0x1E, 0, 0, 0, 1, 0, 0, 0,
                                                0,  0, 0,    0,    0,    0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(FirmwareCommandPipeSendCommand, CarriesFourParametersInOrderAndTheDataBehindThem) {
    SetReply(0x04030201, 1024);
    const std::array<BYTE, 3> data{0xD1, 0xD2, 0xD3};

    EXPECT_EQ(pipe_.SendCommand(0x04030201, data.data(), data.size(), 0x11, 0x22, 0x33, 0x44), S_OK);

    EXPECT_EQ(WrittenHead(), (std::vector<BYTE>{23,   0, 0xAB, 0xCD, 0x01, 0x02, 0x03, 0x04, 0x11, 0, 0, 0,
                                                0x22, 0, 0,    0,    0x33, 0,    0,    0,    0x44, 0, 0, 0}));
    const auto frame = Written();
    EXPECT_EQ((std::vector<BYTE>{frame.begin() + 24, frame.begin() + 27}),
              (std::vector<BYTE>{0xD1, 0xD2, 0xD3}));
}

TEST_F(FirmwareCommandPipeSendCommand, Takes1000BytesOfData) {
    std::vector<BYTE> data(1000);
    std::iota(data.begin(), data.end(), BYTE{0});

    EXPECT_EQ(pipe_.SendCommand(0x1E, data.data(), data.size(), 0, 0, 0, 0), S_OK);

    const auto frame = Written();
    ASSERT_EQ(frame.size(), 1024u);
    EXPECT_EQ(frame[0] | (frame[1] << 8), 1020);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), frame.begin() + 24, frame.end()));
}

TEST_F(FirmwareCommandPipeSendCommand, Refuses1001BytesOfDataBeforeAnythingIsWritten) {
    const std::vector<BYTE> data(1001);
    try {
        pipe_.SendCommand(0x1E, data.data(), data.size(), 0, 0, 0, 0);
        FAIL() << "nothing was thrown";
    } catch (const std::invalid_argument& error) {
        EXPECT_EQ(typeid(error), typeid(std::invalid_argument));
        EXPECT_STREQ(error.what(), "failed to copy data");
    }
    EXPECT_TRUE(control_.Calls().empty());
}

TEST_F(FirmwareCommandPipeSendCommand, DoesNotRefuseALengthWithoutData) {
    EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 0x12345, 0, 0, 0, 0), S_OK);

    const auto frame = Written();
    EXPECT_EQ(frame[0] | (frame[1] << 8), 0x2359);
}

TEST_F(FirmwareCommandPipeSendCommand, CountsTheDataLengthEvenWithoutData) {
    EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 5, 0, 0, 0, 0), S_OK);

    const auto frame = Written();
    EXPECT_EQ(frame[0] | (frame[1] << 8), 25);
    EXPECT_TRUE(std::all_of(frame.begin() + 24, frame.end(), [](BYTE byte) { return byte == 0; }));
}

TEST_F(FirmwareCommandPipeSendCommand, CopiesNothingForALengthOf0) {
    const std::array<BYTE, 3> data{0xD1, 0xD2, 0xD3};

    EXPECT_EQ(pipe_.SendCommand(0x1E, data.data(), 0, 0, 0, 0, 0), S_OK);

    const auto frame = Written();
    EXPECT_EQ(frame[0] | (frame[1] << 8), 20);
    EXPECT_EQ(frame[24], 0);
}

TEST_F(FirmwareCommandPipeSendCommand, ReturnsAFailedWriteAsItIsAndDoesNotRead) {
    writeResult_ = kDeviceGone;

    EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 0, 1, 0, 0, 0), kDeviceGone);

    EXPECT_EQ(Writes(), 1u);
    EXPECT_EQ(Reads(), 0u);
}

TEST_F(FirmwareCommandPipeSendCommand, ReturnsAFailedReadAsItIsAndDoesNotRetry) {
    readResult_ = kDeviceGone;

    EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 0, 1, 0, 0, 0), kDeviceGone);

    EXPECT_EQ(Writes(), 1u);
    EXPECT_EQ(Reads(), 1u);
}

TEST_F(FirmwareCommandPipeSendCommand, ReturnsOkForAnySuccessOfThePropertyCalls) {
    writeResult_ = S_FALSE;
    readResult_ = S_FALSE;

    EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 0, 1, 0, 0, 0), S_OK);
}

TEST_F(FirmwareCommandPipeSendCommand, ReadsBackAtOnce) {
    EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 0, 1, 0, 0, 0), S_OK);

    EXPECT_TRUE(clock_.Calls().empty());
    EXPECT_EQ(callTimes_, (std::vector<ULONGLONG>{0, 0}));
}

TEST_F(FirmwareCommandPipeSendCommand, IsSatisfiedWithAnEchoOfFourBytes) {
    SetReply(0x1E, 4);

    EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 0, 1, 0, 0, 0), S_OK);
}

TEST_F(FirmwareCommandPipeSendCommand, FailsWithFewerThanFourBytes) {
    for (const ULONG bytes : {0u, 3u}) {
        SetReply(0x1E, bytes);
        EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 0, 1, 0, 0, 0), E_FAIL);
    }
}

TEST_F(FirmwareCommandPipeSendCommand, FailsWithAnotherEcho) {
    SetReply(0x1F, 1024);

    EXPECT_EQ(pipe_.SendCommand(0x1E, nullptr, 0, 1, 0, 0, 0), E_FAIL);
}

TEST_F(FirmwareCommandPipeSendCommand, DoesNotCareHowMuchReplyDataIsMissing) {
    const std::array<BYTE, 3> data{0xD1, 0xD2, 0xD3};
    SetReply(0x1E, 4);

    EXPECT_EQ(pipe_.SendCommand(0x1E, data.data(), data.size(), 0, 0, 0, 0), S_OK);
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, WritesThenReadsTheControlWithPlainProperties) {
    std::array<BYTE, 230> reply{};

    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, reply.size(), 0, 0, 0, 0), S_OK);

    ExpectAWriteThenARead();
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, SendsAFrameWithoutDataWhateverItExpectsBack) {
    SetReply(0x04030201, 1024);
    std::array<BYTE, 230> reply{};

    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x04030201, reply.size(), 0x11, 0x22, 0x33, 0x44), S_OK);

    EXPECT_EQ(WrittenHead(), (std::vector<BYTE>{20,   0, 0xAB, 0xCD, 0x01, 0x02, 0x03, 0x04, 0x11, 0, 0, 0,
                                                0x22, 0, 0,    0,    0x33, 0,    0,    0,    0x44, 0, 0, 0}));
    const auto frame = Written();
    EXPECT_TRUE(std::all_of(frame.begin() + 24, frame.end(), [](BYTE byte) { return byte == 0; }));
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, PausesFor100MillisecondsBetweenWriteAndRead) {
    EXPECT_EQ(pipe_.SendCommandAndRead(nullptr, 0x10, 0, 0, 0, 0, 0), S_OK);

    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{100}));
    EXPECT_EQ(callTimes_, (std::vector<ULONGLONG>{0, 100}));
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, CopiesTheExpectedBytesBehindTheEchoAndNoMore) {
    std::iota(reply_.begin() + 4, reply_.begin() + 14, BYTE{1});
    std::array<BYTE, 5> reply{};
    reply[3] = 0xEE;

    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, 3, 0, 0, 0, 0), S_OK);

    EXPECT_EQ(reply, (std::array<BYTE, 5>{1, 2, 3, 0xEE, 0}));
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, TakesAReplyOf1020Bytes) {
    std::iota(reply_.begin() + 4, reply_.end(), BYTE{7});
    std::vector<BYTE> reply(1020);

    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, 1020, 0, 0, 0, 0), S_OK);

    EXPECT_TRUE(std::equal(reply.begin(), reply.end(), reply_.begin() + 4, reply_.end()));
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, RefusesAReplyOf1021BytesWithoutTouchingTheDevice) {
    std::vector<BYTE> reply(1021);
    for (const std::size_t length : {std::size_t{1021}, std::numeric_limits<std::size_t>::max()}) {
        EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, length, 0, 0, 0, 0), E_INVALIDARG);
    }
    EXPECT_TRUE(control_.Calls().empty());
    EXPECT_TRUE(clock_.Calls().empty());
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, ReturnsAFailedWriteAsItIsWithoutPauseOrRead) {
    writeResult_ = kDeviceGone;
    std::array<BYTE, 2> reply{};

    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, reply.size(), 0, 0, 0, 0), kDeviceGone);

    EXPECT_EQ(Writes(), 1u);
    EXPECT_EQ(Reads(), 0u);
    EXPECT_TRUE(clock_.Calls().empty());
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, ReturnsAFailedReadAsItIsAndDoesNotRetry) {
    reply_[4] = 9;
    readResult_ = kDeviceGone;
    std::array<BYTE, 2> reply{};

    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, reply.size(), 0, 0, 0, 0), kDeviceGone);

    EXPECT_EQ(Writes(), 1u);
    EXPECT_EQ(Reads(), 1u);
    EXPECT_EQ(reply[0], 0);
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, ReturnsOkForAnySuccessOfThePropertyCalls) {
    writeResult_ = S_FALSE;
    readResult_ = S_FALSE;
    std::array<BYTE, 2> reply{};

    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, reply.size(), 0, 0, 0, 0), S_OK);
    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, 0, 0, 0, 0, 0), S_OK);
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, IsSatisfiedWithABareEchoWhenItExpectsNoData) {
    SetReply(0x10, 4);

    EXPECT_EQ(pipe_.SendCommandAndRead(nullptr, 0x10, 0, 0, 0, 0, 0), S_OK);
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, FailsWithABareEchoWhenItExpectsOneByte) {
    SetReply(0x10, 4);
    reply_[4] = 9;
    BYTE reply = 0;

    EXPECT_EQ(pipe_.SendCommandAndRead(&reply, 0x10, 1, 0, 0, 0, 0), E_FAIL);

    EXPECT_EQ(reply, 0);
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, FailsWhenOneByteIsMissing) {
    std::array<BYTE, 230> reply{};

    SetReply(0x10, 233);
    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, 230, 0, 0, 0, 0), E_FAIL);
    SetReply(0x10, 234);
    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, 230, 0, 0, 0, 0), S_OK);
    SetReply(0x10, 3);
    EXPECT_EQ(pipe_.SendCommandAndRead(nullptr, 0x10, 0, 0, 0, 0, 0), E_FAIL);
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, FailsWithAnotherEchoAndLeavesTheReplyAlone) {
    SetReply(0x11, 1024);
    reply_[4] = 9;
    BYTE reply = 0;

    EXPECT_EQ(pipe_.SendCommandAndRead(&reply, 0x10, 1, 0, 0, 0, 0), E_FAIL);
    EXPECT_EQ(pipe_.SendCommandAndRead(nullptr, 0x10, 0, 0, 0, 0, 0), E_FAIL);

    EXPECT_EQ(reply, 0);
}

// A driver may claim more than it was given room for; nothing behind the buffer may be read.
TEST_F(FirmwareCommandPipeSendCommandAndRead, TakesNoMoreThanItAskedForFromADriverThatClaimsMore) {
    SetReply(0x10, 0xFFFFFFFF);
    std::iota(reply_.begin() + 4, reply_.end(), BYTE{1});
    std::array<BYTE, 3> reply{};

    EXPECT_EQ(pipe_.SendCommandAndRead(reply.data(), 0x10, 2, 0, 0, 0, 0), S_OK);

    EXPECT_EQ(reply, (std::array<BYTE, 3>{1, 2, 0}));
}

// This C runtime lets nobody set a handler for its invalid-parameter reports. What can be seen is that its
// checked copy, which raises the report, was given the null pointer, and the errno that belongs to it.
TEST_F(FirmwareCommandPipeSendCommandAndRead, HasTheRuntimeReportANullReply) {
    const CheckedCopyRecorder copies;
    errno = 0;

    const HRESULT result = pipe_.SendCommandAndRead(nullptr, 0x10, 1, 0, 0, 0, 0);
    const int error = errno;

    EXPECT_EQ(result, E_FAIL);
    EXPECT_EQ(error, EINVAL);
    EXPECT_EQ(copies.NullDestinations(), 1);
    EXPECT_EQ(Writes(), 1u);
    EXPECT_EQ(Reads(), 1u);
}

TEST_F(FirmwareCommandPipeSendCommandAndRead, HasNothingReportedForANullReplyOfNoLength) {
    const CheckedCopyRecorder copies;
    errno = 0;

    EXPECT_EQ(pipe_.SendCommandAndRead(nullptr, 0x10, 0, 0, 0, 0, 0), S_OK);

    EXPECT_EQ(errno, 0);
    EXPECT_EQ(copies.NullDestinations(), 0);
}

TEST_F(FirmwareCommandPipeTest, KeepsNothingFromOneCommandToTheNext) {
    SetReply(0x10, 1024);
    const std::array<BYTE, 3> data{0xD1, 0xD2, 0xD3};
    EXPECT_EQ(pipe_.SendCommand(0x10, data.data(), data.size(), 1, 2, 3, 4), S_OK);
    readResult_ = kDeviceGone;
    EXPECT_EQ(pipe_.SendCommand(0x10, nullptr, 0, 0, 0, 0, 0), kDeviceGone);
    readResult_ = S_OK;

    EXPECT_EQ(pipe_.SendCommand(0x10, nullptr, 0, 0, 0, 0, 0), S_OK);

    const auto last = control_.Calls().at(4).dataBefore;
    EXPECT_EQ(last[0], 20);
    EXPECT_TRUE(std::all_of(last.begin() + 8, last.end(), [](BYTE byte) { return byte == 0; }));
}

}  // namespace
