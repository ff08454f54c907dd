#include "host/campaign/FaultCatalogue.h"

#include "lab/camera/DfuTypes.h"

#include <array>
#include <utility>

namespace campaign {
namespace {

using lab::Fault;
using Moment = lab::Fault::Moment;
using What = lab::Fault::What;
using Where = lab::Fault::Where;

constexpr std::array kObstructions{What::Stall, What::Timeout, What::Unplug};
constexpr std::uint32_t kLongestPollMs = 0xFFFFFF;
constexpr std::uint32_t kWriteError = 3;
constexpr std::uint32_t kOtherOpcode = 0x1E10;

Where PlaceOf(const Crossing& crossing) {
    switch (crossing.what) {
        case Crossing::What::CommandWrite:
            return Where::CommandWrite;
        case Crossing::What::CommandRead:
            return Where::CommandRead;
        case Crossing::What::Descriptor:
            return Where::GetDescriptor;
        case Crossing::What::SetInterface:
            return Where::SetInterface;
        case Crossing::What::Transfer:
            break;
    }
    switch (lab::DfuRequest{crossing.setup.request}) {
        case lab::DfuRequest::Detach:
            return Where::Detach;
        case lab::DfuRequest::Dnload:
            return Where::Dnload;
        case lab::DfuRequest::Upload:
            return Where::Upload;
        case lab::DfuRequest::GetStatus:
            return Where::GetStatus;
        case lab::DfuRequest::ClrStatus:
            return Where::ClrStatus;
        case lab::DfuRequest::GetState:
            return Where::GetState;
        case lab::DfuRequest::Abort:
            break;
    }
    return Where::Abort;
}

}  // namespace

void FaultCatalogue::AddStep(const Crossing& crossing) {
    constexpr std::size_t kStateInStatus = 4;
    const Where where = PlaceOf(crossing);
    ++steps_;
    ForgetRepeat(crossing);
    switch (where) {
        case Where::CommandRead:
            AddRead(where);
            Add(where, What::ShortReply, Moment::Before, 3);
            Add(where, What::WrongEcho, Moment::Before, kOtherOpcode);
            break;
        case Where::GetDescriptor:
            AddRead(where);
            Add(where, What::ShortReply, Moment::Before,
                static_cast<std::uint32_t>(crossing.transferred) - 1);
            break;
        case Where::CommandWrite:
        case Where::SetInterface:
            AddRead(where);
            for (const What what : kObstructions) {
                Add(where, what, Moment::After);
            }
            break;
        case Where::GetStatus:
            AddRequest(where, false);
            AddSilence(where);
            if (crossing.transferred > kStateInStatus) {
                AddStatus(crossing.after[kStateInStatus]);
            }
            break;
        case Where::GetState:
            AddRequest(where, false);
            Add(where, What::State, Moment::Before, static_cast<std::uint32_t>(lab::DfuState::Error));
            Add(where, What::ShortReply);
            break;
        case Where::Upload:
            AddRequest(where, false);
            Add(where, What::ShortReply);
            break;
        case Where::Dnload:
            AddRequest(where, crossing.setup.length != 0);
            break;
        case Where::Detach:
        case Where::ClrStatus:
        case Where::Abort:
        case Where::FlashErase:
        case Where::FlashWrite:
            AddRequest(where, false);
            break;
    }
    ++seen_[where];
}

// The step before, when it is neither the first nor the second of its like, and this is another of them.
void FaultCatalogue::ForgetRepeat(const Crossing& crossing) {
    const bool isLook = crossing.what == Crossing::What::Transfer &&
                        lab::DfuRequest{crossing.setup.request} == lab::DfuRequest::GetStatus;
    std::vector<std::uint8_t> answer;
    if (isLook) {
        answer.assign(crossing.after.begin(),
                      crossing.after.begin() + static_cast<std::ptrdiff_t>(crossing.transferred));
    }
    alike_ = isLook && alike_ != 0 && answer == lastAnswer_ ? alike_ + 1 : isLook ? 1 : 0;
    if (alike_ > 3) {
        faults_.resize(lastFault_);
        ++repeats_;
    }
    lastAnswer_ = std::move(answer);
    lastFault_ = faults_.size();
}

void FaultCatalogue::AddPages(const lab::PageOperations& operations) {
    for (const auto& [where, count] : {std::pair{Where::FlashErase, operations.erased},
                                       std::pair{Where::FlashWrite, operations.written}}) {
        for (unsigned number = 0; number < count; ++number) {
            Add(where, What::Unplug, Moment::Before);
            Add(where, What::Unplug, Moment::Middle);
            // What is after one operation is before the next, but for the last of all.
            if (where == Where::FlashWrite && number + 1 == count) {
                Add(where, What::Unplug, Moment::After);
            }
            ++seen_[where];
        }
    }
}

void FaultCatalogue::Add(Where where, What what, Moment moment, std::uint32_t value) {
    faults_.push_back({.where = where, .what = what, .skip = seen_[where], .value = value, .moment = moment});
}

// What is only read, or is no request of the standard: the device has no state that a refusal could change.
void FaultCatalogue::AddRead(Where where) {
    for (const What what : kObstructions) {
        Add(where, what);
    }
}

void FaultCatalogue::AddRequest(Where where, bool hasBlock) {
    for (const What what : kObstructions) {
        Add(where, what);
        Add(where, what, Moment::After);
        if (hasBlock) {
            Add(where, what, Moment::Middle);
        }
    }
    Add(where, What::Stall);
    faults_.back().setsError = false;
}

// From there on every request of its kind is not answered, or refused without any change.
void FaultCatalogue::AddSilence(Where where) {
    Add(where, What::Timeout);
    faults_.back().count = 0;
    Add(where, What::Stall);
    faults_.back().setsError = false;
    faults_.back().count = 0;
}

// Every state that means something to the service, but for the one that is told anyway.
void FaultCatalogue::AddStatus(std::uint8_t state) {
    using lab::DfuState;
    constexpr Where kWhere = Where::GetStatus;
    Add(kWhere, What::Status, Moment::Before, kWriteError);
    for (const DfuState other : {DfuState::DfuIdle, DfuState::DnBusy, DfuState::DnloadIdle,
                                 DfuState::ManifestWaitReset, DfuState::Error}) {
        if (static_cast<std::uint8_t>(other) != state) {
            Add(kWhere, What::State, Moment::Before, static_cast<std::uint32_t>(other));
        }
    }
    Add(kWhere, What::PollTime, Moment::Before, kLongestPollMs);
    Add(kWhere, What::ShortReply);
    Add(kWhere, What::ShortReply, Moment::Before, 4);
}

}  // namespace campaign
