#include "dfu/DfuCommand.h"

#include "tests/dfu/FakeUsbControlEndpoint.h"
#include "tests/support/DfuNumbers.h"
#include "tests/support/FakeClock.h"
#include "tests/support/ImageFile.h"
#include "tests/support/ImportRedirect.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace dfu {
namespace {

using namespace test_support;
using Bytes = std::vector<std::uint8_t>;
using Requests = std::vector<std::string>;
using StatusAnswer = FakeUsbControlEndpoint::StatusAnswer;

constexpr HRESULT kGeneralFailure = static_cast<HRESULT>(0x8007001F);

const std::string kGetStateRequest = "A1 05 0000 0000 0001 in 1 [00]";
const std::string kDetachRequest = "21 00 03E8 0000 0000 none";
const std::string kGetStatusRequest = "A1 03 0000 0000 0006 in 6 [0E 00 00 00 0A 00]";

Bytes ImageOf(std::size_t length) {
    Bytes image(length);
    std::iota(image.begin(), image.end(), std::uint8_t{1});
    return image;
}

// An engine on a camera that takes 4 bytes a block, with a log and a fake clock.
class DfuCommandTest : public testing::Test {
  protected:
    DfuCommand& Command(std::size_t fwStatusSize = 0) {
        command_ = std::make_unique<DfuCommand>(endpoint_, fwStatusSize, &log_,
                                                [this](std::int32_t blocks) { progress_.push_back(blocks); });
        return *command_;
    }

    HRESULT UpdateWith(const Bytes& image, std::size_t fwStatusSize = 0) {
        return Command(fwStatusSize).Update(image.data(), image.size());
    }

    HRESULT Download(const Bytes& image) { return Command().DownloadImage(image.data(), image.size()); }
    HRESULT UpdateFromFile(const std::wstring& path) { return Command().UpdateFromFile(path.c_str()); }
    HRESULT WaitForBlock(DWORD timeoutMs) {
        return Command().WaitForState(DFU_STATE::dfuDNLOAD_IDLE, timeoutMs);
    }

    // From now on, every GETSTATUS gives this.
    void AnswerGetStatus(StatusAnswer answer) {
        endpoint_->AnswerGetStatus([answer] { return answer; });
    }

    [[nodiscard]] std::string Log() const { return log_.str(); }

    FakeClock clock_;
    std::shared_ptr<FakeUsbControlEndpoint> endpoint_ =
        std::make_shared<FakeUsbControlEndpoint>(std::uint16_t{4});
    std::ostringstream log_;
    std::vector<std::int32_t> progress_;
    std::unique_ptr<DfuCommand> command_;
};

// ---- The object

TEST_F(DfuCommandTest, HasOnlyItsDestructorVirtual) {
    EXPECT_TRUE(std::has_virtual_destructor_v<DfuCommand>);
    EXPECT_TRUE((std::is_base_of_v<DfuLogger, DfuCommand>));
    EXPECT_FALSE(std::is_polymorphic_v<DfuLogger>);
    EXPECT_FALSE(std::is_copy_constructible_v<DfuCommand>);
}

TEST_F(DfuCommandTest, NumbersItsStatesAsTheStandardDoes) {
    EXPECT_EQ(sizeof(DFU_STATE), 1U);
    EXPECT_EQ(static_cast<int>(DFU_STATE::dfuIDLE), 2);
    EXPECT_EQ(static_cast<int>(DFU_STATE::dfuDNLOAD_IDLE), 5);
    EXPECT_EQ(static_cast<int>(DFU_STATE::dfuMANIFEST_WAIT_RESET), 8);
    EXPECT_EQ(static_cast<int>(DFU_STATE::dfuERROR), 10);
}

TEST_F(DfuCommandTest, ReleasesItsShareOfTheEndpointAndTheCallback) {
    const auto witness = std::make_shared<int>(0);
    {
        const DfuCommand command(endpoint_, 0, nullptr, [witness](std::int32_t) {});
        EXPECT_EQ(endpoint_.use_count(), 2);
        EXPECT_EQ(witness.use_count(), 2);
    }
    EXPECT_EQ(endpoint_.use_count(), 1);
    EXPECT_EQ(witness.use_count(), 1);
    EXPECT_TRUE(endpoint_->IsConnected()) << "the engine owns no device";
}

TEST_F(DfuCommandTest, SendsNothingBeforeItIsRun) {
    Command(68);
    command_.reset();
    EXPECT_EQ(endpoint_->Requests(), Requests{});
}

// ---- The whole sequence

TEST_F(DfuCommandTest, SendsTheWholeSequenceOfAnUpdate) {
    EXPECT_EQ(UpdateWith(ImageOf(10)), S_OK);
    EXPECT_EQ(
        endpoint_->Requests(),
        (Requests{kGetStateRequest, kDetachRequest, kGetStateRequest, "21 01 0000 0000 0004 out 01 02 03 04",
                  kGetStatusRequest, "21 01 0001 0000 0004 out 05 06 07 08", kGetStatusRequest,
                  "21 01 0002 0000 0002 out 09 0A", kGetStatusRequest, "21 01 0003 0000 0000 none",
                  kGetStatusRequest, kGetStatusRequest}));
    EXPECT_EQ(clock_.Calls().size(), 0U) << "a device that is ready at once costs no waiting";
}

TEST_F(DfuCommandTest, LogsEachBlockAndNothingElseOfAnUpdateThatSucceeds) {
    EXPECT_EQ(UpdateWith(ImageOf(10)), S_OK);
    EXPECT_EQ(Log(),
              "Downloaded 4, bytes remaining 6\n"
              "Downloaded 4, bytes remaining 2\n"
              "Downloaded 2, bytes remaining 0\n");
}

TEST_F(DfuCommandTest, ReportsTheNumberOfBlocksSentSoFar) {
    EXPECT_EQ(UpdateWith(ImageOf(10)), S_OK);
    EXPECT_EQ(progress_, (std::vector<std::int32_t>{1, 2, 3}));
}

TEST_F(DfuCommandTest, ReportsProgressBehindTheLogLineOfTheBlockAndBeforeTheNext) {
    DfuCommand command(endpoint_, 0, &log_,
                       [this](std::int32_t) { log_ << '<' << endpoint_->Requests().size() << ">\n"; });
    const Bytes image = ImageOf(5);
    EXPECT_EQ(command.Update(image.data(), image.size()), S_OK);
    EXPECT_EQ(Log(), "Downloaded 4, bytes remaining 1\n<5>\nDownloaded 1, bytes remaining 0\n<7>\n");
}

TEST_F(DfuCommandTest, TakesAnEmptyProgressCallback) {
    DfuCommand command(endpoint_, 0, &log_, {});
    const Bytes image = ImageOf(4);
    EXPECT_EQ(command.Update(image.data(), image.size()), S_OK);
}

TEST_F(DfuCommandTest, ProbesWithAnUploadOfTheStatusSizeBeforeTheFirstBlock) {
    endpoint_->FillUploadsWith(0xFF);
    EXPECT_EQ(UpdateWith(ImageOf(4), 68), S_OK) << "the bytes read are not examined";
    const std::string zeros = [] {
        std::string text = "00";
        for (int count = 1; count < 68; ++count) {
            text += " 00";
        }
        return text;
    }();
    ASSERT_GE(endpoint_->Requests().size(), 5U);
    EXPECT_EQ(endpoint_->Requests()[2], kGetStateRequest);
    EXPECT_EQ(endpoint_->Requests()[3], "A1 02 0000 0000 0044 in 68 [" + zeros + "]");
    EXPECT_EQ(endpoint_->Requests()[4], "21 01 0000 0000 0004 out 01 02 03 04");
    EXPECT_EQ(endpoint_->CountOf(kUpload), 1U);
}

TEST_F(DfuCommandTest, SendsNoUploadWithAStatusSizeOfZero) {
    EXPECT_EQ(UpdateWith(ImageOf(4), 0), S_OK);
    EXPECT_EQ(endpoint_->CountOf(kUpload), 0U);
}

TEST_F(DfuCommandTest, WritesNothingWithoutALogger) {
    DfuCommand command(endpoint_, 0, nullptr, {});
    const Bytes image = ImageOf(4);
    EXPECT_EQ(command.Update(image.data(), image.size()), S_OK);
    endpoint_->FailRequest(kDetach, kGeneralFailure);
    EXPECT_EQ(command.Update(image.data(), image.size()), kGeneralFailure);
    EXPECT_EQ(command.UpdateFromFile(L"C:\\no such folder\\no such file"), E_FAIL);
}

// ---- Steps that fail

TEST_F(DfuCommandTest, RefusesAnEndpointThatIsNotConnectedWithoutALine) {
    endpoint_->Disconnect();
    EXPECT_EQ(UpdateWith(ImageOf(4), 68), E_ACCESSDENIED);
    EXPECT_EQ(endpoint_->Requests(), Requests{});
    EXPECT_EQ(Log(), "");
}

TEST_F(DfuCommandTest, StopsWhenTheFirstGetStateFails) {
    endpoint_->FailRequest(kGetState, kGeneralFailure);
    EXPECT_EQ(UpdateWith(ImageOf(4), 68), kGeneralFailure);
    EXPECT_EQ(endpoint_->Requests(), (Requests{kGetStateRequest}));
    EXPECT_EQ(Log(),
              "usbEndpoint->Transfer(packet, reinterpret_cast<PUCHAR>(&state), sizeof(UCHAR)) Failed with "
              "status-2147024865\n"
              "GetDfuState(state) Failed with status-2147024865\n");
}

TEST_F(DfuCommandTest, DoesNotExamineTheFirstState) {
    endpoint_->AnswerGetState({10, 2});
    EXPECT_EQ(UpdateWith(ImageOf(4)), S_OK);
    EXPECT_EQ(Log(), "Downloaded 4, bytes remaining 0\n");
}

TEST_F(DfuCommandTest, StopsWhenDetachFails) {
    endpoint_->FailRequest(kDetach, kGeneralFailure);
    EXPECT_EQ(UpdateWith(ImageOf(4), 68), kGeneralFailure);
    EXPECT_EQ(endpoint_->Requests(), (Requests{kGetStateRequest, kDetachRequest}));
    EXPECT_EQ(Log(),
              "usbEndpoint->Transfer(packet, nullptr, 0) Failed with status-2147024865\n"
              "Detach() Failed with status-2147024865\n");
}

TEST_F(DfuCommandTest, StopsWhenTheStateCannotBeReadAfterDetach) {
    endpoint_->FailRequest(kGetState, kGeneralFailure, 1);
    EXPECT_EQ(UpdateWith(ImageOf(4), 68), kGeneralFailure);
    EXPECT_EQ(endpoint_->Requests(), (Requests{kGetStateRequest, kDetachRequest, kGetStateRequest}));
    EXPECT_EQ(Log(),
              "usbEndpoint->Transfer(packet, reinterpret_cast<PUCHAR>(&state), sizeof(UCHAR)) Failed with "
              "status-2147024865\n"
              "GetDfuState(state) Failed with status-2147024865\n"
              "AssertState(DFU_STATE::dfuIDLE) Failed with status-2147024865\n");
}

class DfuCommandInAnotherState : public DfuCommandTest, public testing::WithParamInterface<int> {};

TEST_P(DfuCommandInAnotherState, SendsNoDownloadWhenItIsNotIdleAfterDetach) {
    endpoint_->AnswerGetState({2, static_cast<std::uint8_t>(GetParam())});
    EXPECT_EQ(UpdateWith(ImageOf(4), 68), E_FAIL);
    EXPECT_EQ(endpoint_->Requests(), (Requests{kGetStateRequest, kDetachRequest, kGetStateRequest}));
    EXPECT_EQ(Log(), "AssertState(DFU_STATE::dfuIDLE) Failed with status-2147467259\n");
}

INSTANTIATE_TEST_SUITE_P(EveryState, DfuCommandInAnotherState,
                         testing::Values(0, 1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 255));

// What is compared is the integer, set to 0 before the read.
TEST_F(DfuCommandTest, TakesAStateThatTheDeviceDidNotWriteForZero) {
    endpoint_->LeaveGetStateUnwritten();
    EXPECT_EQ(UpdateWith(ImageOf(4)), E_FAIL);
    EXPECT_EQ(Log(), "AssertState(DFU_STATE::dfuIDLE) Failed with status-2147467259\n");
}

TEST_F(DfuCommandTest, StopsWhenTheProbeFails) {
    endpoint_->FailRequest(kUpload, static_cast<HRESULT>(0x80070018));
    EXPECT_EQ(UpdateWith(ImageOf(4), 68), static_cast<HRESULT>(0x80070018));
    EXPECT_EQ(endpoint_->Requests().size(), 4U);
    EXPECT_EQ(endpoint_->CountOf(kDnload), 0U);
    EXPECT_EQ(
        Log(),
        "usbEndpoint->Transfer(packet, reinterpret_cast<PUCHAR>(fwStatus.data()), fwStatusSize) Failed with "
        "status-2147024872\n"
        "TestConnection() Failed with status-2147024872\n");
}

TEST_F(DfuCommandTest, StopsAtTheFirstBlockThatIsNotTaken) {
    endpoint_->FailRequest(kDnload, static_cast<HRESULT>(0x80070006), 1);
    EXPECT_EQ(UpdateWith(ImageOf(10)), static_cast<HRESULT>(0x80070006));
    EXPECT_EQ(endpoint_->Requests(), (Requests{kGetStateRequest, kDetachRequest, kGetStateRequest,
                                               "21 01 0000 0000 0004 out 01 02 03 04", kGetStatusRequest,
                                               "21 01 0001 0000 0004 out 05 06 07 08"}));
    EXPECT_EQ(Log(),
              "Downloaded 4, bytes remaining 6\n"
              "usbEndpoint->Transfer(downloadPacket, pBuffer, chunkSize) Failed with status-2147024890\n"
              "DownloadImage(reinterpret_cast<const BYTE *>(firmwareImage), imageLength) Failed with "
              "status-2147024890\n");
    EXPECT_EQ(progress_, (std::vector<std::int32_t>{1}));
}

const std::string kBlockWaitFailed =
    "WaitForState(DFU_STATE::dfuDNLOAD_IDLE, 5000) Failed with status-2147467259\n"
    "DownloadImage(reinterpret_cast<const BYTE *>(firmwareImage), imageLength) Failed with "
    "status-2147467259\n";

TEST_F(DfuCommandTest, StopsAtTheFirstNonZeroStatus) {
    AnswerGetStatus({.bStatus = 3, .bState = 5});
    EXPECT_EQ(UpdateWith(ImageOf(10)), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kDnload), 1U);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 1U);
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>{});
    EXPECT_EQ(Log(), kBlockWaitFailed);
    EXPECT_EQ(progress_, std::vector<std::int32_t>{});
}

TEST_F(DfuCommandTest, StopsAtTheErrorStateAndLeavesTheDeviceAsItIs) {
    AnswerGetStatus({.bStatus = 0, .bState = 10});
    EXPECT_EQ(UpdateWith(ImageOf(10)), E_FAIL);
    EXPECT_EQ(endpoint_->Requests().size(), 5U);
    EXPECT_EQ(endpoint_->Requests().back(), kGetStatusRequest) << "no CLRSTATUS, no ABORT";
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>{});
    EXPECT_EQ(Log(), kBlockWaitFailed);
}

// 5 s at a poll each 200 ms.
TEST_F(DfuCommandTest, GivesUpOnABlockThatKeepsTheDeviceBusyForFiveSeconds) {
    AnswerGetStatus({.bState = 4});
    EXPECT_EQ(UpdateWith(ImageOf(10)), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 25U);
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>(25, 200));
    EXPECT_EQ(clock_.Elapsed(), 5000U);
    EXPECT_EQ(endpoint_->CountOf(kDnload), 1U);
    EXPECT_EQ(Log(), kBlockWaitFailed);
}

TEST_F(DfuCommandTest, TakesABlockThatIsReadyAtTheLastPoll) {
    endpoint_->AnswerGetStatus([this] {
        return StatusAnswer{.bState = static_cast<std::uint8_t>(clock_.Elapsed() < 4800 ? 4 : 5)};
    });
    EXPECT_EQ(Download(ImageOf(4)), S_OK);
    EXPECT_EQ(clock_.Elapsed(), 4800U);
}

const std::string kManifestWaitFailed =
    "WaitForState(DFU_STATE::dfuMANIFEST_WAIT_RESET, 30000) Failed with status-2147467259\n"
    "ManifestAndReset() Failed with status-2147467259\n";

// 30 s at a poll each 200 ms.
TEST_F(DfuCommandTest, GivesUpOnAManifestationOfThirtySeconds) {
    AnswerGetStatus({.bState = 7});
    EXPECT_EQ(UpdateWith({}), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 150U);
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>(150, 200));
    EXPECT_EQ(clock_.Elapsed(), 30000U);
    EXPECT_EQ(Log(), kManifestWaitFailed);
}

TEST_F(DfuCommandTest, StopsAtAnErrorWhileManifesting) {
    AnswerGetStatus({.bStatus = 6, .bState = 8});
    EXPECT_EQ(UpdateWith({}), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 1U);
    EXPECT_EQ(Log(), kManifestWaitFailed);
}

TEST_F(DfuCommandTest, IgnoresTheLastGetStatus) {
    endpoint_->FailRequest(kGetStatus, kGeneralFailure, 2);
    EXPECT_EQ(UpdateWith(ImageOf(4)), S_OK);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 3U);
    EXPECT_EQ(Log(), "Downloaded 4, bytes remaining 0\n");
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>{});
}

TEST_F(DfuCommandTest, IgnoresAnErrorInTheLastGetStatus) {
    endpoint_->AnswerGetStatus([this] {
        return endpoint_->CountOf(kGetStatus) == 1 ? StatusAnswer{.bState = 8}
                                                   : StatusAnswer{.bStatus = 14, .bState = 10};
    });
    EXPECT_EQ(UpdateWith({}), S_OK);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 2U);
    EXPECT_EQ(Log(), "");
}

TEST_F(DfuCommandTest, FlushesEveryLine) {
    class CountingBuffer : public std::stringbuf {
      public:
        int flushes = 0;

      protected:
        int sync() override {
            ++flushes;
            return std::stringbuf::sync();
        }
    };
    CountingBuffer buffer;
    std::ostream stream(&buffer);
    DfuCommand command(endpoint_, 0, &stream, {});
    endpoint_->FailRequest(kDnload, kGeneralFailure, 1);
    const Bytes image = ImageOf(8);
    EXPECT_EQ(command.Update(image.data(), image.size()), kGeneralFailure);
    EXPECT_EQ(buffer.flushes, 3);
}

// ---- WaitForState

TEST_F(DfuCommandTest, WaitForStateReturnsAtOnceInTheWantedState) {
    AnswerGetStatus({.bState = 8});
    EXPECT_EQ(Command().WaitForState(DFU_STATE::dfuMANIFEST_WAIT_RESET, 1000), S_OK);
    EXPECT_EQ(endpoint_->Requests(), (Requests{kGetStatusRequest}));
    EXPECT_EQ(clock_.Calls().size(), 0U);
    EXPECT_EQ(Log(), "");
}

TEST_F(DfuCommandTest, WaitForStatePollsEvery200Milliseconds) {
    endpoint_->AnswerGetStatus([this] {
        return StatusAnswer{.bState = static_cast<std::uint8_t>(endpoint_->CountOf(kGetStatus) < 4 ? 4 : 5)};
    });
    EXPECT_EQ(WaitForBlock(5000), S_OK);
    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{200, 200, 200}));
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 4U);
}

TEST_F(DfuCommandTest, WaitForStateIgnoresTheDevicesPollTimeout) {
    endpoint_->AnswerGetStatus([this] {
        return StatusAnswer{.bState = static_cast<std::uint8_t>(endpoint_->CountOf(kGetStatus) < 2 ? 4 : 5),
                            .bwPollTimeout = 0xFFFFFF};
    });
    EXPECT_EQ(WaitForBlock(5000), S_OK);
    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{200}));
}

TEST_F(DfuCommandTest, WaitForStatePollsOnceEvenWithoutTime) {
    AnswerGetStatus({.bState = 5});
    EXPECT_EQ(WaitForBlock(0), S_OK);
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>{});
}

TEST_F(DfuCommandTest, WaitForStateJudgesTheTimeAfterASleep) {
    AnswerGetStatus({.bState = 4});
    EXPECT_EQ(WaitForBlock(0), E_FAIL);
    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{200}));
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 1U);
}

TEST_F(DfuCommandTest, WaitForStateEndsWhenTheTimeIsExactlyOver) {
    AnswerGetStatus({.bState = 4});
    EXPECT_EQ(WaitForBlock(400), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 2U);
}

TEST_F(DfuCommandTest, WaitForStateExceedsATimeoutThatIsNoMultipleOfThePeriod) {
    AnswerGetStatus({.bState = 4});
    EXPECT_EQ(WaitForBlock(401), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 3U);
    EXPECT_EQ(clock_.Elapsed(), 600U);
}

TEST_F(DfuCommandTest, WaitForStateCountsTheTimeOfItsTransfers) {
    AnswerGetStatus({.bState = 4});
    endpoint_->BeforeEachTransfer([this] { clock_.Advance(4800); });
    EXPECT_EQ(WaitForBlock(5000), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 1U);
}

// Ticks of 32 bits would wrap in here: the clock starts 256 ms before they do.
TEST_F(DfuCommandTest, WaitForStateCountsIn64Bits) {
    ASSERT_LT(clock_.Now(), 0x100000000U);
    AnswerGetStatus({.bState = 4});
    EXPECT_EQ(WaitForBlock(1000), E_FAIL);
    EXPECT_GT(clock_.Now(), 0x100000000U);
    EXPECT_EQ(clock_.Elapsed(), 1000U);
}

TEST_F(DfuCommandTest, WaitForStateTakesTheLongestTimeout) {
    endpoint_->AnswerGetStatus([this] {
        return StatusAnswer{.bState = static_cast<std::uint8_t>(clock_.Elapsed() < 60000 ? 4 : 5)};
    });
    EXPECT_EQ(WaitForBlock(0xFFFFFFFF), S_OK);
    EXPECT_EQ(clock_.Elapsed(), 60000U);
}

TEST_F(DfuCommandTest, WaitForStatePollsAgainAfterATransferThatFailed) {
    endpoint_->FailRequest(kGetStatus, kGeneralFailure, 0, 3);
    AnswerGetStatus({.bState = 5});
    EXPECT_EQ(WaitForBlock(5000), S_OK);
    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{200, 200, 200}));
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 4U);
    EXPECT_EQ(Log(), "");
}

TEST_F(DfuCommandTest, WaitForStateEndsWithEFailWhenEveryTransferFails) {
    AnswerGetStatus({.result = kGeneralFailure});
    EXPECT_EQ(WaitForBlock(1000), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 5U);
    EXPECT_EQ(clock_.Elapsed(), 1000U);
}

// The buffer holds an error before every transfer, so that a reply without bytes is one.
TEST_F(DfuCommandTest, WaitForStateTakesAReplyThatWasNotWrittenForAnError) {
    AnswerGetStatus({.writes = false});
    EXPECT_EQ(WaitForBlock(5000), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 1U);
}

TEST_F(DfuCommandTest, WaitForStateFillsItsBufferAgainBeforeEachPoll) {
    endpoint_->AnswerGetStatus(
        [this] { return StatusAnswer{.bState = 4, .writes = endpoint_->CountOf(kGetStatus) == 1}; });
    EXPECT_EQ(WaitForBlock(5000), E_FAIL);
    EXPECT_EQ(endpoint_->Requests(), (Requests{kGetStatusRequest, kGetStatusRequest}));
}

TEST_F(DfuCommandTest, WaitForStateDoesNotTakeTheWantedStateWithABadStatus) {
    AnswerGetStatus({.bStatus = 1, .bState = 8});
    EXPECT_EQ(Command().WaitForState(DFU_STATE::dfuMANIFEST_WAIT_RESET, 5000), E_FAIL);
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>{});
}

TEST_F(DfuCommandTest, WaitForStateCanWaitForTheErrorState) {
    AnswerGetStatus({.bStatus = 0, .bState = 10});
    EXPECT_EQ(Command().WaitForState(DFU_STATE::dfuERROR, 5000), S_OK);
}

class DfuCommandWaitsOutAState : public DfuCommandTest, public testing::WithParamInterface<int> {};

TEST_P(DfuCommandWaitsOutAState, ThatIsNeitherWantedNorTheErrorState) {
    AnswerGetStatus({.bState = static_cast<std::uint8_t>(GetParam())});
    EXPECT_EQ(WaitForBlock(600), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 3U);
}

INSTANTIATE_TEST_SUITE_P(EveryState, DfuCommandWaitsOutAState,
                         testing::Values(0, 1, 2, 3, 4, 6, 7, 8, 9, 11, 255));

// ---- DownloadImage

TEST_F(DfuCommandTest, DownloadImageSendsOneEmptyBlockForAnEmptyImageAndDoesNotPoll) {
    const std::uint8_t nothing = 0;
    EXPECT_EQ(Command().DownloadImage(&nothing, 0), S_OK);
    EXPECT_EQ(endpoint_->Requests(), (Requests{"21 01 0000 0000 0000 none"}));
    EXPECT_EQ(Log(), "");
    EXPECT_EQ(progress_, std::vector<std::int32_t>{});
}

TEST_F(DfuCommandTest, DownloadImageIgnoresTheOutcomeOfTheEmptyBlockOfAnEmptyImage) {
    endpoint_->FailRequest(kDnload, kGeneralFailure);
    EXPECT_EQ(Command().DownloadImage(nullptr, 0), S_OK);
    EXPECT_EQ(endpoint_->Requests().size(), 1U);
    EXPECT_EQ(Log(), "");
}

TEST_F(DfuCommandTest, WaitsForTheManifestationOfAnEmptyImage) {
    EXPECT_EQ(UpdateWith({}), S_OK);
    EXPECT_EQ(endpoint_->Requests(),
              (Requests{kGetStateRequest, kDetachRequest, kGetStateRequest, "21 01 0000 0000 0000 none",
                        kGetStatusRequest, kGetStatusRequest}));
}

TEST_F(DfuCommandTest, DownloadImageSendsAnImageOfOneWholeBlockAndAnEmptyBlock1) {
    EXPECT_EQ(Download(ImageOf(4)), S_OK);
    EXPECT_EQ(endpoint_->Requests(), (Requests{"21 01 0000 0000 0004 out 01 02 03 04", kGetStatusRequest,
                                               "21 01 0001 0000 0000 none"}));
}

TEST_F(DfuCommandTest, DownloadImageSendsTheRestOfAnImageThatIsOneByteLonger) {
    EXPECT_EQ(Download(ImageOf(5)), S_OK);
    EXPECT_EQ(endpoint_->Requests(),
              (Requests{"21 01 0000 0000 0004 out 01 02 03 04", kGetStatusRequest,
                        "21 01 0001 0000 0001 out 05", kGetStatusRequest, "21 01 0002 0000 0000 none"}));
}

TEST_F(DfuCommandTest, DownloadImageSendsAnImageBelowOneBlockAsItIs) {
    EXPECT_EQ(Download(ImageOf(1)), S_OK);
    EXPECT_EQ(endpoint_->Requests(),
              (Requests{"21 01 0000 0000 0001 out 01", kGetStatusRequest, "21 01 0001 0000 0000 none"}));
}

TEST_F(DfuCommandTest, DownloadImageIgnoresTheOutcomeOfTheLastEmptyBlock) {
    endpoint_->FailRequest(kDnload, kGeneralFailure, 1);
    EXPECT_EQ(Download(ImageOf(4)), S_OK);
    EXPECT_EQ(endpoint_->CountOf(kDnload), 2U);
    EXPECT_EQ(Log(), "Downloaded 4, bytes remaining 0\n");
}

TEST_F(DfuCommandTest, DownloadImageUsesTheWholeRangeOfTransferSizes) {
    endpoint_ = std::make_shared<FakeUsbControlEndpoint>(std::uint16_t{65535});
    const Bytes image = ImageOf(65537);
    EXPECT_EQ(Download(image), S_OK);
    EXPECT_EQ(endpoint_->Downloaded(), image);
    EXPECT_EQ(endpoint_->BlockNumbers(), (std::vector<std::uint16_t>{0, 1, 2}));
    EXPECT_EQ(Log(), "Downloaded 65535, bytes remaining 2\nDownloaded 2, bytes remaining 0\n");
}

// No division, no endless loop, nothing on the bus.
TEST_F(DfuCommandTest, DownloadImageFailsForADeviceThatTakesNothing) {
    endpoint_ = std::make_shared<FakeUsbControlEndpoint>(std::uint16_t{0});
    EXPECT_EQ(Download(ImageOf(4)), E_FAIL);
    EXPECT_EQ(endpoint_->Requests(), Requests{});
    EXPECT_EQ(Download({}), S_OK);
    EXPECT_EQ(endpoint_->CountOf(kDnload), 1U);
}

TEST_F(DfuCommandTest, LogsTheDownloadOfADeviceThatTakesNothing) {
    endpoint_ = std::make_shared<FakeUsbControlEndpoint>(std::uint16_t{0});
    EXPECT_EQ(UpdateWith(ImageOf(4)), E_FAIL);
    EXPECT_EQ(endpoint_->CountOf(kDnload), 0U);
    EXPECT_EQ(Log(),
              "DownloadImage(reinterpret_cast<const BYTE *>(firmwareImage), imageLength) Failed with "
              "status-2147467259\n");
}

TEST_F(DfuCommandTest, DownloadImageLetsTheBlockNumberWrapAt65536) {
    endpoint_ = std::make_shared<FakeUsbControlEndpoint>(std::uint16_t{1});
    const Bytes image = ImageOf(65537);
    DfuCommand command(endpoint_, 0, nullptr, [this](std::int32_t blocks) { progress_.push_back(blocks); });
    EXPECT_EQ(command.DownloadImage(image.data(), image.size()), S_OK);
    EXPECT_EQ(endpoint_->Downloaded(), image);

    ASSERT_EQ(endpoint_->BlockNumbers().size(), 65538U);
    EXPECT_EQ(endpoint_->BlockNumbers()[65535], 65535);
    EXPECT_EQ(endpoint_->BlockNumbers()[65536], 0);
    EXPECT_EQ(endpoint_->BlockNumbers()[65537], 1) << "the empty block at the end";

    ASSERT_EQ(progress_.size(), 65537U);
    EXPECT_EQ(progress_[32767], 32768) << "widened without a sign";
    EXPECT_EQ(progress_[65534], 65535);
    EXPECT_EQ(progress_[65535], 0);
    EXPECT_EQ(progress_[65536], 1);
}

// ---- UpdateFromFile

// Line ends, the end-of-file character of text files and zeros among them.
TEST_F(DfuCommandTest, UpdateFromFileSendsTheFileUnchanged) {
    const Bytes image{0x0D, 0x0A, 0x1A, 0x00, 0x0A, 0xFF, 0x1A, 0x0D};
    const ImageFile file(image);
    EXPECT_EQ(UpdateFromFile(file.Path()), S_OK);
    EXPECT_EQ(endpoint_->Downloaded(), image);
    EXPECT_EQ(Log(), "Downloaded 4, bytes remaining 4\nDownloaded 4, bytes remaining 0\n");
}

TEST_F(DfuCommandTest, UpdateFromFileReadsALargeFileWhole) {
    endpoint_ = std::make_shared<FakeUsbControlEndpoint>(std::uint16_t{4096});
    const Bytes image = ImageOf(300001);
    const ImageFile file(image);
    EXPECT_EQ(UpdateFromFile(file.Path()), S_OK);
    EXPECT_EQ(endpoint_->Downloaded(), image);
}

TEST_F(DfuCommandTest, UpdateFromFileTakesAnEmptyFile) {
    const ImageFile file({});
    EXPECT_EQ(UpdateFromFile(file.Path()), S_OK);
    EXPECT_EQ(endpoint_->BlockNumbers(), (std::vector<std::uint16_t>{0}));
    EXPECT_EQ(endpoint_->CountOf(kGetStatus), 2U);
}

TEST_F(DfuCommandTest, UpdateFromFileOpensAPathOutsideTheNarrowCharacterSet) {
    const ImageFile file(ImageOf(4), L"прошивка – 固件.bin");
    EXPECT_EQ(UpdateFromFile(file.Path()), S_OK);
    EXPECT_EQ(endpoint_->Downloaded(), ImageOf(4));
}

TEST_F(DfuCommandTest, UpdateFromFileOpensTheUnquotedFileOfAPathInQuotes) {
    const ImageFile file(ImageOf(4), L"image with blanks.bin");
    EXPECT_EQ(UpdateFromFile(L'"' + file.Path() + L'"'), S_OK);
    EXPECT_EQ(endpoint_->Downloaded(), ImageOf(4));
}

TEST_F(DfuCommandTest, UpdateFromFileRemovesOnePairOfQuotesOnly) {
    const ImageFile file(ImageOf(4));
    EXPECT_EQ(UpdateFromFile(L"\"\"" + file.Path() + L"\"\""), E_FAIL);
}

TEST_F(DfuCommandTest, UpdateFromFileUsesAPathWithOneQuoteAsItIs) {
    const ImageFile file(ImageOf(4));
    EXPECT_EQ(UpdateFromFile(L'"' + file.Path()), E_FAIL);
    EXPECT_EQ(UpdateFromFile(file.Path() + L'"'), E_FAIL);
    EXPECT_EQ(endpoint_->Requests(), Requests{});
}

TEST_F(DfuCommandTest, UpdateFromFileRaisesTheStandardErrorForASingleQuote) {
    try {
        UpdateFromFile(L"\"");
        FAIL() << "nothing was raised";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "invalid string position");
    }
    EXPECT_EQ(endpoint_->Requests(), Requests{});
    EXPECT_EQ(Log(), "");
}

TEST_F(DfuCommandTest, UpdateFromFileFailsForAnEmptyPathQuotedOrNot) {
    EXPECT_EQ(UpdateFromFile(L""), E_FAIL);
    EXPECT_EQ(UpdateFromFile(L"\"\""), E_FAIL);
    EXPECT_EQ(endpoint_->Requests(), Requests{});
}

TEST_F(DfuCommandTest, UpdateFromFileLogsTheAddressOfThePathThatDoesNotOpen) {
    const std::wstring path = L"C:\\no such folder\\no such file";
    EXPECT_EQ(UpdateFromFile(path), E_FAIL);
    std::ostringstream expected;
    expected << "Failed to open file " << static_cast<const void*>(path.c_str()) << '\n';
    EXPECT_EQ(Log(), expected.str());
    EXPECT_EQ(endpoint_->Requests(), Requests{});
}

TEST_F(DfuCommandTest, UpdateFromFileLogsTheAddressOfTheCallersTextNotOfTheUnquotedCopy) {
    const std::wstring path = L"\"C:\\no such folder\\no such file\"";
    EXPECT_EQ(UpdateFromFile(path), E_FAIL);
    std::ostringstream expected;
    expected << "Failed to open file " << static_cast<const void*>(path.c_str()) << '\n';
    EXPECT_EQ(Log(), expected.str());
}

TEST_F(DfuCommandTest, UpdateFromFileFailsForAFolder) {
    const std::wstring folder = std::filesystem::temp_directory_path().wstring();
    EXPECT_EQ(UpdateFromFile(folder), E_FAIL);
    EXPECT_EQ(endpoint_->Requests(), Requests{});
}

// The file is looked at before the endpoint.
TEST_F(DfuCommandTest, UpdateFromFileFailsForAMissingFileEvenWhenNotConnected) {
    endpoint_->Disconnect();
    EXPECT_EQ(UpdateFromFile(L"C:\\no such folder\\no such file"), E_FAIL);
}

TEST_F(DfuCommandTest, UpdateFromFileReturnsTheResultOfTheUpdate) {
    const ImageFile file(ImageOf(4));
    endpoint_->FailRequest(kDetach, kGeneralFailure);
    EXPECT_EQ(UpdateFromFile(file.Path()), kGeneralFailure);
    endpoint_->Disconnect();
    EXPECT_EQ(UpdateFromFile(file.Path()), E_ACCESSDENIED);
}

int ReadThatFails(int, void*, unsigned) {
    errno = EIO;
    return -1;
}

int ReadThatFindsNothing(int, void*, unsigned) {
    return 0;
}

TEST_F(DfuCommandTest, UpdateFromFileLogsAFileThatCannotBeRead) {
    const ImageFile file(ImageOf(4));
    const ImportRedirect read("_read", &ReadThatFails);
    EXPECT_EQ(UpdateFromFile(file.Path()), E_FAIL);
    EXPECT_EQ(Log(), "Failed to read file\n");
    EXPECT_EQ(endpoint_->Requests(), Requests{});
}

// As when the file is cut off between the question for its size and the read.
TEST_F(DfuCommandTest, UpdateFromFileLogsAFileThatEndsTooEarly) {
    const ImageFile file(ImageOf(4));
    const ImportRedirect read("_read", &ReadThatFindsNothing);
    EXPECT_EQ(UpdateFromFile(file.Path()), E_FAIL);
    EXPECT_EQ(Log(), "Failed to read file\n");
    EXPECT_EQ(endpoint_->Requests(), Requests{});
}

TEST_F(DfuCommandTest, UpdateFromFileLeavesTheFileClosed) {
    const ImageFile file(ImageOf(4));
    EXPECT_EQ(UpdateFromFile(file.Path()), S_OK);
    EXPECT_TRUE(DeleteFileW(file.Path().c_str()));
}

}  // namespace
}  // namespace dfu
