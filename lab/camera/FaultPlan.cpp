#include "lab/camera/FaultPlan.h"

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

// Whether it has a meaning at all.
bool CanStrike(const Fault& fault) {
    const bool hasMiddle = fault.where == Fault::Where::Dnload || IsPageOperation(fault.where);
    return GoesWith(fault.what, fault.where) && (fault.moment != Fault::Moment::Middle || hasMiddle);
}

}  // namespace

FaultPlan::FaultPlan(const std::vector<Fault>& faults) {
    for (const Fault& fault : faults) {
        if (CanStrike(fault)) {
            entries_.push_back(Entry{.fault = fault});
        }
    }
}

std::vector<Fault> FaultPlan::Strike(Fault::Where where) {
    std::vector<Fault> striking;
    for (Entry& entry : entries_) {
        if (entry.fault.where != where) {
            continue;
        }
        const std::uint64_t number = entry.seen++;
        const std::uint64_t end = std::uint64_t{entry.fault.skip} + entry.fault.count;
        if (number >= entry.fault.skip && (entry.fault.count == 0 || number < end)) {
            striking.push_back(entry.fault);
        }
    }
    return striking;
}

std::size_t FaultPlan::Met() const {
    return static_cast<std::size_t>(std::count_if(
        entries_.begin(), entries_.end(), [](const Entry& entry) { return entry.seen > entry.fault.skip; }));
}

}  // namespace lab
