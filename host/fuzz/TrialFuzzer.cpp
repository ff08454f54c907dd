#include "host/campaign/Trial.h"
#include "host/campaign/TrialPlan.h"
#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Telling.h"

#include <array>
#include <cstdio>
#include <cstdlib>

// A whole trial of the campaign: a camera of any kind, up to four faults of any sort in up to three updates,
// a good update behind them and another camera's. What must hold is what the campaign's judges hold; what
// breaks tells its id, with which scripts/faults plays it again.
//
// Input: kind, image size, number of faults, then of each fault the update, where, what, skip, count,
// value (u16) and moment (u8 each).

namespace {

using fuzz::FuzzInput;
using lab::Fault;

constexpr std::size_t kMostFaults = 4;
// The smallest; around one block and two; more of them.
constexpr std::array<std::size_t, 7> kImageSizes{
    campaign::kSmallestImage, 1023, 1024, 1025, 2048, 2500, 5000};

Fault AnyFault(FuzzInput& input) {
    constexpr std::array kMoments{Fault::Moment::Before, Fault::Moment::After, Fault::Moment::Middle};
    Fault fault;
    fault.where = static_cast<Fault::Where>(input.Byte() % 13);
    fault.what = static_cast<Fault::What>(input.Byte() % 8);
    fault.skip = input.Byte();
    fault.count = input.Byte();
    fault.value = input.Word();
    const std::uint8_t how = input.Byte();
    fault.moment = kMoments[how % kMoments.size()];
    // What means nothing for the fault is none, so that the id of a trial says all of it.
    const bool hasValue = fault.what >= Fault::What::Status || fault.moment == Fault::Moment::Middle;
    fault.value = hasValue ? fault.value : 0;
    fault.setsError = fault.what != Fault::What::Stall || how / 4 % 2 == 0;
    return fault;
}

campaign::TrialPlan AnyPlan(FuzzInput& input) {
    campaign::TrialPlan plan;
    plan.kind = &campaign::Kinds()[input.Byte() % campaign::Kinds().size()];
    plan.imageSize = kImageSizes[input.Byte() % kImageSizes.size()];
    plan.seed = 1;
    plan.faults.resize(input.Byte() % (kMostFaults + 1));
    for (campaign::PlannedFault& planned : plan.faults) {
        planned.update = 1 + input.Byte() % 3U;
        planned.fault = AnyFault(input);
    }
    return plan;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* count, char*** words) {
    fuzz::ReadCommandLine(*count, *words);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const campaign::TrialPlan plan = AnyPlan(input);
    if (fuzz::isTelling) {
        std::printf("{\"trial\": \"%s\"}\n", campaign::IdOf(plan).c_str());
        std::fflush(stdout);
        fuzz::isTelling = false;
    }
    const campaign::UpdateEnd& faultless = campaign::FaultlessEnd(*plan.kind, plan.imageSize);
    const campaign::TrialEnd end = campaign::Trial(plan, &faultless).Run();
    if (!end.complaint.empty()) {
        std::fprintf(stderr, "broken promise: scripts/faults --replay %s: %s\n", campaign::IdOf(plan).c_str(),
                     end.complaint.c_str());
        std::abort();
    }
    return 0;
}
