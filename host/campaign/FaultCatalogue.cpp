#include "host/campaign/FaultCatalogue.h"

#include "lab/camera/DfuTypes.h"
#include "lab/camera/FaultPlan.h"

#include <array>
#include <utility>

namespace campaign {
namespace {

using lab::DfuState;
using lab::Fault;
using Moment = lab::Fault::Moment;
using What = lab::Fault::What;
using Where = lab::Fault::Where;

constexpr std::array kObstructions{What::Stall, What::Timeout, What::Unplug};
constexpr std::uint32_t kLongestPollMs = 0xFFFFFF;
constexpr std::uint32_t kWriteError = 3;
constexpr std::uint32_t kOtherOpcode = 0x1E10;
constexpr std::uint32_t kInformationReply = 4 + 230;  // bytes: the echo, and the information block

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
    // The service sends no other.
    return lab::FaultPlaceOf(crossing.setup.request).value_or(Where::Abort);
}

}  // namespace

void FaultCatalogue::AddStep(const Crossing& crossing) {
    constexpr std::size_t kStateInStatus = 4;
    const Where where = PlaceOf(crossing);
    ++steps_;
    ForgetRepeat(crossing);
    switch (where) {
        case Where::CommandRead:
        case Where::CommandWrite:
            AddCommand(where);
            break;
        case Where::GetDescriptor:
            AddDescriptor(crossing);
            break;
        case Where::SetInterface:
            AddRead(where);
            AddLostAnswer(where);
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
            for (const DfuState state : {DfuState::AppIdle, DfuState::DnloadIdle, DfuState::ManifestWaitReset,
                                         DfuState::UploadIdle, DfuState::Error}) {
                Add(where, What::State, Moment::Before, static_cast<std::uint32_t>(state));
            }
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
        forgotten_ += faults_.size() - lastFault_;
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

void FaultCatalogue::AddLostAnswer(Where where) {
    for (const What what : kObstructions) {
        Add(where, what, Moment::After);
    }
}

// A reply ends before its echo, in it, behind it, and before the last byte of the information block. That no
// attempt comes through is one fault of the first.
void FaultCatalogue::AddCommand(Where where) {
    AddRead(where);
    if (where == Where::CommandWrite) {
        AddLostAnswer(where);
    } else {
        for (const std::uint32_t bytes : {0U, 3U, 4U, kInformationReply - 1}) {
            Add(where, What::ShortReply, Moment::Before, bytes);
        }
        Add(where, What::WrongEcho, Moment::Before, kOtherOpcode);
    }
    if (seen_[where] == 0) {
        AddSilence(where);
    }
}

void FaultCatalogue::AddDescriptor(const Crossing& crossing) {
    constexpr std::size_t kHeader = 9;
    constexpr std::uint32_t kInterfaceCount = 4;
    constexpr Where kWhere = Where::GetDescriptor;
    AddRead(kWhere);
    Add(kWhere, What::ShortReply, Moment::Before, 0);
    if (crossing.before.size() == kHeader) {
        Add(kWhere, What::ShortReply, Moment::Before, kInterfaceCount);
    }
    Add(kWhere, What::ShortReply, Moment::Before, static_cast<std::uint32_t>(crossing.transferred) - 1);
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

// Every state that a device in DFU mode has a reason to tell, but for the one that is told anyway.
// dfuMANIFEST-SYNC stands in no answer of the standard's: GETSTATUS leaves it.
void FaultCatalogue::AddStatus(std::uint8_t state) {
    constexpr Where kWhere = Where::GetStatus;
    Add(kWhere, What::Status, Moment::Before, kWriteError);
    for (const DfuState other :
         {DfuState::DfuIdle, DfuState::DnloadSync, DfuState::DnBusy, DfuState::DnloadIdle, DfuState::Manifest,
          DfuState::ManifestWaitReset, DfuState::UploadIdle, DfuState::Error}) {
        if (static_cast<std::uint8_t>(other) != state) {
            Add(kWhere, What::State, Moment::Before, static_cast<std::uint32_t>(other));
        }
    }
    Add(kWhere, What::PollTime, Moment::Before, kLongestPollMs);
    Add(kWhere, What::ShortReply);
    Add(kWhere, What::ShortReply, Moment::Before, 4);
}

}  // namespace campaign
