#include "host/campaign/PassJudge.h"

#include "host/campaign/BrokenRule.h"

#include <algorithm>
#include <span>
#include <vector>

namespace campaign {
namespace {

constexpr std::size_t kFrameSize = 1024;
constexpr std::uint8_t kInformation = 0x10;
constexpr std::uint8_t kSwitch = 0x1E;
constexpr int kAttempts = 5;
constexpr std::uint64_t kReplyPauseMs = 100;
constexpr std::uint64_t kAttemptPauseMs = 500;
constexpr std::size_t kEchoSize = 4;
constexpr std::size_t kInformationReply = kEchoSize + 230;
constexpr std::size_t kVersionInReply = kEchoSize + 12;
constexpr std::int32_t kDone = 0;
constexpr auto kFail = static_cast<std::int32_t>(0x80004005);

bool IsCommand(std::span<const std::uint8_t> frame, std::uint8_t opcode, std::uint8_t parameter) {
    std::vector<std::uint8_t> expected(kFrameSize);
    constexpr std::array<std::uint8_t, 4> kHead{20, 0, 0xAB, 0xCD};
    std::copy(kHead.begin(), kHead.end(), expected.begin());
    expected[4] = opcode;
    expected[8] = parameter;
    return std::ranges::equal(frame, expected);
}

}  // namespace

void PassJudge::BeginReading() {
    step_ = Step::WriteInformation;
    attempts_ = 0;
    nextAtMs_ = time_.Now();
    version_.reset();
}

std::optional<std::array<std::uint8_t, 4>> PassJudge::EndReading() const {
    Rule(step_ == Step::Nothing, "the version is asked for until it is told, or five times");
    Rule(time_.Now() == nextAtMs_, "nobody waits behind the last attempt");
    return version_;
}

void PassJudge::BeginSwitch() {
    step_ = Step::WriteSwitch;
    nextAtMs_ = time_.Now();
}

void PassJudge::EndSwitch(std::int32_t result) const {
    Rule(step_ == Step::Nothing, "the command into DFU mode is sent, and its reply is read");
    Rule(result == switchResult_,
         "a command succeeds when its reply echoes it, and fails as its requests do");
    Rule(time_.Now() == nextAtMs_, "nobody waits behind the command into DFU mode");
}

void PassJudge::OnCrossing(const Crossing& crossing) {
    Rule(crossing.beganMs == nextAtMs_, "a running camera is asked when its time has come");
    const bool isWrite = crossing.what == Crossing::What::CommandWrite;
    const bool succeeded = crossing.result >= 0;
    nextAtMs_ = crossing.endedMs;
    switch (step_) {
        case Step::Nothing:
            Rule(false, "a running camera is asked for its version and sent into DFU mode, nothing else");
            break;
        case Step::WriteInformation:
            Rule(isWrite && IsCommand(crossing.before, kInformation, 0),
                 "the information block is asked for by its frame");
            if (succeeded) {
                step_ = Step::ReadInformation;
                nextAtMs_ += kReplyPauseMs;
            } else {
                EndAttempt();
            }
            break;
        case Step::ReadInformation:
            Rule(!isWrite && crossing.before.size() == kFrameSize, "the whole control is read back");
            TakeInformation(crossing);
            break;
        case Step::WriteSwitch:
            Rule(isWrite && IsCommand(crossing.before, kSwitch, 1),
                 "the command into DFU mode has its frame");
            step_ = succeeded ? Step::ReadSwitch : Step::Nothing;
            switchResult_ = crossing.result;
            break;
        case Step::ReadSwitch:
            Rule(!isWrite && crossing.before.size() == kFrameSize, "the whole control is read back");
            switchResult_ = !succeeded                               ? crossing.result
                            : IsAnswer(crossing, kSwitch, kEchoSize) ? kDone
                                                                     : kFail;
            step_ = Step::Nothing;
            break;
    }
}

void PassJudge::TakeInformation(const Crossing& crossing) {
    if (crossing.result < 0 || !IsAnswer(crossing, kInformation, kInformationReply)) {
        EndAttempt();
        return;
    }
    version_.emplace();
    std::ranges::copy(crossing.after.subspan(kVersionInReply, 4), version_->begin());
    step_ = Step::Nothing;
}

// Whether so much came, and begins with the command's echo.
bool PassJudge::IsAnswer(const Crossing& crossing, std::uint8_t opcode, std::size_t length) {
    const std::array<std::uint8_t, kEchoSize> echo{opcode, 0, 0, 0};
    return crossing.transferred >= length && std::ranges::equal(crossing.after.first(kEchoSize), echo);
}

void PassJudge::EndAttempt() {
    ++attempts_;
    step_ = attempts_ < kAttempts ? Step::WriteInformation : Step::Nothing;
    nextAtMs_ += attempts_ < kAttempts ? kAttemptPauseMs : 0;
}

}  // namespace campaign
