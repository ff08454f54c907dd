#include "lab/camera/FaultPlan.h"

#include "lab/camera/DfuTypes.h"

#include <algorithm>

namespace lab {
namespace {

bool IsPageOperation(Fault::Where where) {
    return where == Fault::Where::FlashErase || where == Fault::Where::FlashWrite;
}

bool GoesWith(Fault::What what, Fault::Where where) {
    switch (what) {
        case Fault::What::Stall:
        case Fault::What::Timeout:
            return !IsPageOperation(where);
        case Fault::What::Unplug:
            return true;
        case Fault::What::Status:
        case Fault::What::PollTime:
            return where == Fault::Where::GetStatus;
        case Fault::What::State:
            return where == Fault::Where::GetStatus || where == Fault::Where::GetState;
        case Fault::What::ShortReply:
            return where == Fault::Where::Upload || where == Fault::Where::GetStatus ||
                   where == Fault::Where::GetState || where == Fault::Where::CommandRead ||
                   where == Fault::Where::GetDescriptor;
        case Fault::What::WrongEcho:
            return where == Fault::Where::CommandRead;
    }
    return false;
}

bool IsObstruction(Fault::What what) {
    return what == Fault::What::Stall || what == Fault::What::Timeout || what == Fault::What::Unplug;
}

// Where in an answer its change begins.
std::uint32_t OffsetOf(const Fault& fault) {
    constexpr std::uint32_t kPollTime = 1;
    constexpr std::uint32_t kState = 4;
    if (fault.what == Fault::What::PollTime) {
        return kPollTime;
    }
    return fault.what == Fault::What::State && fault.where == Fault::Where::GetStatus ? kState : 0;
}

// Whether nothing is seen of a fault because another strikes the same request.
bool Hides(const Fault& other, const Fault& fault, bool isFirst) {
    if (IsObstruction(fault.what) || IsObstruction(other.what)) {
        return IsObstruction(other.what) && (isFirst || !IsObstruction(fault.what));
    }
    if (fault.what == other.what) {
        return fault.what == Fault::What::ShortReply && fault.value != other.value ? other.value < fault.value
                                                                                   : isFirst;
    }
    return other.what == Fault::What::ShortReply && other.value <= OffsetOf(fault);
}

}  // namespace

std::optional<Fault::Where> FaultPlaceOf(std::uint8_t request) {
    switch (DfuRequest{request}) {
        case DfuRequest::Detach:
            return Fault::Where::Detach;
        case DfuRequest::Dnload:
            return Fault::Where::Dnload;
        case DfuRequest::Upload:
            return Fault::Where::Upload;
        case DfuRequest::GetStatus:
            return Fault::Where::GetStatus;
        case DfuRequest::ClrStatus:
            return Fault::Where::ClrStatus;
        case DfuRequest::GetState:
            return Fault::Where::GetState;
        case DfuRequest::Abort:
            return Fault::Where::Abort;
    }
    return std::nullopt;
}

FaultPlan::FaultPlan(const std::vector<Fault>& faults) {
    for (const Fault& fault : faults) {
        if (CanStrike(fault)) {
            entries_.push_back(Entry{.fault = fault});
        }
    }
}

bool FaultPlan::CanStrike(const Fault& fault) {
    const bool hasMiddle = fault.where == Fault::Where::Dnload || IsPageOperation(fault.where);
    return GoesWith(fault.what, fault.where) && (fault.moment != Fault::Moment::Middle || hasMiddle);
}

std::vector<Fault> FaultPlan::Strike(Fault::Where where) {
    std::vector<Entry*> striking;
    for (Entry& entry : entries_) {
        if (entry.fault.where != where) {
            continue;
        }
        const std::uint64_t number = entry.seen++;
        const std::uint64_t end = std::uint64_t{entry.fault.skip} + entry.fault.count;
        if (number >= entry.fault.skip && (entry.fault.count == 0 || number < end)) {
            striking.push_back(&entry);
        }
    }
    std::vector<Fault> faults;
    for (Entry* const entry : striking) {
        const bool isHidden = std::any_of(striking.begin(), striking.end(), [&](const Entry* other) {
            return other != entry && Hides(other->fault, entry->fault, other < entry);
        });
        if (!isHidden) {
            entry->hasStruck = true;
            faults.push_back(entry->fault);
        }
    }
    return faults;
}

std::size_t FaultPlan::Met() const {
    return static_cast<std::size_t>(
        std::count_if(entries_.begin(), entries_.end(), [](const Entry& entry) { return entry.hasStruck; }));
}

}  // namespace lab
