#include "host/campaign/Tally.h"

#include "host/campaign/Allowances.h"

namespace campaign {
namespace {

using How = UpdateEnd::How;

}  // namespace

std::string_view FirmwareInWords(const lab::FirmwareVerdict& verdict) {
    if (!verdict.isValid) {
        return "none";
    }
    switch (verdict.content) {
        case lab::FirmwareVerdict::Content::Image:
            return "image";
        case lab::FirmwareVerdict::Content::Old:
            return "old";
        case lab::FirmwareVerdict::Content::Other:
            break;
    }
    return "wrong";
}

namespace {

std::string_view HowInWords(How how) {
    switch (how) {
        case How::NotAsked:
        case How::UpToDate:
        case How::NotSwitched:
            return "not begun";
        case How::NotOpened:
            return "not opened";
        case How::Failed:
            return "failed";
        case How::Updated:
            return "updated";
    }
    return "?";
}

}  // namespace

std::string InWords(const UpdateEnd& end) {
    return std::string(HowInWords(end.how)) + ", " + std::string(FirmwareInWords(end.verdict));
}

void Tally::Add(const TrialPlan& plan, const TrialEnd& end) {
    ++trials_;
    allMet_ += end.FaultsMet() == plan.faults.size() ? 1U : 0U;
    for (const std::size_t allowance : end.allowances) {
        ++allowed_[std::string(Allowances()[allowance].name)];
    }
    if (end.updates.size() != plan.LastUpdate() + 1) {
        return;
    }
    ++ends_[InWords(end.updates[end.updates.size() - 2])];
    const UpdateEnd& good = end.updates.back();
    ++goodUpdates_[good.how == How::Updated ? "updated"
                   : good.beganInError      ? "stays without firmware"
                                            : "as ever"];
}

}  // namespace campaign
