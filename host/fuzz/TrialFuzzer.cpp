#include "host/campaign/AnyFault.h"
#include "host/campaign/Trial.h"
#include "host/campaign/TrialPlan.h"
#include "host/compat/Events.h"
#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Telling.h"
#include "lab/camera/Fault.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <vector>

// A whole trial of the campaign: a camera of any kind, up to four faults of any sort in up to three updates
// that begin in any way, a good update behind them and another camera's. What must hold is what the
// campaign's judges hold; what breaks tells its id, with which scripts/faults plays it again.
//
// Input: kind, image size, number of faults, then of each fault the update, where, what, skip, count,
// value (u16) and moment (u8 each), then how the updates begin (u8). What does not go with its place or its
// moment strikes in another way.

namespace {

using fuzz::FuzzInput;

constexpr std::size_t kMostFaults = 4;
constexpr unsigned kMostSkipped = 24;  // requests of a kind; most updates have fewer
// The smallest; around one block and two; more of them.
constexpr std::array<std::size_t, 7> kImageSizes{
    campaign::kSmallestImage, 1023, 1024, 1025, 2048, 2500, 5000};

lab::Fault FaultOfInput(FuzzInput& input) {
    campaign::FaultNumbers numbers;
    numbers.where = input.Byte();
    numbers.what = input.Byte();
    numbers.skip = input.Byte() % kMostSkipped;
    numbers.count = input.Byte();
    numbers.value = input.Word();
    numbers.how = input.Byte();
    return campaign::AnyFault(numbers);
}

// A bit for each update that begins otherwise than as ever.
std::vector<campaign::Circumstance> AnyCircumstances(std::uint8_t bits) {
    using What = campaign::Circumstance::What;
    constexpr std::array<campaign::Circumstance, 5> kAll{{{.update = 2, .what = What::ArrivesAgain},
                                                          {.update = 3, .what = What::ArrivesAgain},
                                                          {.update = 1, .what = What::StaleError},
                                                          {.update = 2, .what = What::StaleError},
                                                          {.update = 3, .what = What::StaleError}}};
    std::vector<campaign::Circumstance> circumstances;
    for (std::size_t bit = 0; bit < kAll.size(); ++bit) {
        if ((bits >> bit & 1) != 0) {
            circumstances.push_back(kAll[bit]);
        }
    }
    return circumstances;
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
        planned.fault = FaultOfInput(input);
    }
    plan.circumstances = AnyCircumstances(input.Byte());
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
