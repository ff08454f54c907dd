#include "host/campaign/Trial.h"
#include "host/campaign/TrialPlan.h"
#include "host/compat/Events.h"
#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Telling.h"
#include "lab/camera/FaultPlan.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

// A whole trial of the campaign: a camera of any kind, up to four faults of any sort in up to three updates,
// a good update behind them and another camera's. What must hold is what the campaign's judges hold; what
// breaks tells its id, with which scripts/faults plays it again.
//
// Input: kind, image size, number of faults, then of each fault the update, where, what, skip, count,
// value (u16) and moment (u8 each). What does not go with its place or its moment strikes in another way.

namespace {

using fuzz::FuzzInput;
using lab::Fault;
using lab::FaultPlan;

constexpr std::size_t kMostFaults = 4;
constexpr unsigned kMostSkipped = 24;  // requests of a kind; most updates have fewer
// The smallest; around one block and two; more of them.
constexpr std::array<std::size_t, 7> kImageSizes{
    campaign::kSmallestImage, 1023, 1024, 1025, 2048, 2500, 5000};

Fault AnyFault(FuzzInput& input) {
    constexpr std::array kMoments{Fault::Moment::Before, Fault::Moment::After, Fault::Moment::Middle};
    Fault fault;
    fault.where = static_cast<Fault::Where>(input.Byte() % 13);
    fault.what = static_cast<Fault::What>(input.Byte() % 8);
    fault.skip = input.Byte() % kMostSkipped;
    fault.count = input.Byte();
    fault.value = input.Word();
    const std::uint8_t how = input.Byte();
    fault.moment = kMoments[how % kMoments.size()];
    if (!FaultPlan::CanStrike(fault)) {
        fault.moment = Fault::Moment::Before;
    }
    if (!FaultPlan::CanStrike(fault)) {
        fault.what = fault.value % 2 == 0 ? Fault::What::Timeout : Fault::What::Stall;
    }
    if (!FaultPlan::CanStrike(fault)) {
        fault.what = Fault::What::Unplug;
    }
    // What means nothing for the fault is none, so that the id of a trial says all of it.
    const bool hasValue = fault.what >= Fault::What::Status || fault.moment == Fault::Moment::Middle;
    fault.value = hasValue ? fault.value : 0;
    fault.setsError = fault.what != Fault::What::Stall || how / 4 % 2 == 0;
    return fault;
}

// What was fuzzed so far: a conversation is what the engine and a camera that was opened had to say to each
// other, from the first request to the end. Told at every million and at the end.
class Count {
  public:
    Count() = default;
    Count(const Count&) = delete;
    Count& operator=(const Count&) = delete;
    ~Count() { Tell(); }

    void Add(const campaign::TrialEnd& end) {
        for (const campaign::UpdateEnd& update : end.updates) {
            if (update.how == campaign::UpdateEnd::How::Failed ||
                update.how == campaign::UpdateEnd::How::Updated) {
                AddOne(update.faultsMet != 0);
            }
        }
        AddOne(false);  // the other camera's
    }

  private:
    void AddOne(bool hasFault) {
        constexpr std::uint64_t kMillion = 1'000'000;
        ++conversations_;
        faulted_ += hasFault ? 1U : 0U;
        if (conversations_ % kMillion == 0) {
            Tell();
        }
    }
    void Tell() const {
        std::fprintf(stderr,
                     "stat::conversations: %" PRIu64 "\nstat::conversations_with_a_fault: %" PRIu64 "\n",
                     conversations_, faulted_);
    }

    std::uint64_t conversations_ = 0;
    std::uint64_t faulted_ = 0;
};

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

// libFuzzer looks for leaks whenever an input leaves more memory behind than there was, which takes longer
// than the input: what is made once is made now, and each trial is a process whose handles go with it.
extern "C" int LLVMFuzzerInitialize(int* count, char*** words) {
    fuzz::ReadCommandLine(*count, *words);
    for (const campaign::Kind& kind : campaign::Kinds()) {
        for (const std::size_t size : kImageSizes) {
            static_cast<void>(campaign::FaultlessEnd(kind, size));
        }
    }
    host::Events::OfProcess().CloseAll();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Count count;
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
    count.Add(end);
    host::Events::OfProcess().CloseAll();
    return 0;
}
