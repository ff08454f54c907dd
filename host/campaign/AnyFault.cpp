#include "host/campaign/AnyFault.h"

#include "lab/camera/FaultPlan.h"

#include <array>

namespace campaign {

using lab::Fault;
using lab::FaultPlan;

Fault AnyFault(const FaultNumbers& numbers) {
    constexpr std::array kMoments{Fault::Moment::Before, Fault::Moment::After, Fault::Moment::Middle};
    Fault fault;
    fault.where = static_cast<Fault::Where>(numbers.where % Fault::kPlaces);
    fault.what = static_cast<Fault::What>(numbers.what % Fault::kKinds);
    fault.skip = numbers.skip;
    fault.count = numbers.count;
    fault.value = numbers.value;
    fault.moment = kMoments[numbers.how % kMoments.size()];
    if (!FaultPlan::CanStrike(fault)) {
        fault.moment = Fault::Moment::Before;
    }
    if (!FaultPlan::CanStrike(fault)) {
        fault.what = fault.value % 2 == 0 ? Fault::What::Timeout : Fault::What::Stall;
    }
    if (!FaultPlan::CanStrike(fault)) {
        fault.what = Fault::What::Unplug;
    }
    const bool hasValue = fault.what >= Fault::What::Status || fault.moment == Fault::Moment::Middle;
    fault.value = hasValue ? fault.value : 0;
    fault.setsError = fault.what != Fault::What::Stall || numbers.how / 4 % 2 == 0;
    return fault;
}

}  // namespace campaign
