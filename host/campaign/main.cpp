#include "host/campaign/Allowances.h"
#include "host/campaign/BootLoaderAnswers.h"
#include "host/campaign/BrokenRule.h"
#include "host/campaign/Campaign.h"
#include "host/campaign/CurrentTrial.h"
#include "host/campaign/SeededChoice.h"
#include "host/campaign/Tally.h"
#include "host/campaign/Transcript.h"
#include "host/campaign/Trial.h"
#include "lab/vocabulary/CameraFields.h"
#include "lab/vocabulary/HexText.h"

#include <charconv>
#include <chrono>
#include <exception>
#include <iostream>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

// The campaign's program, for scripts/faults. It answers in lines of JSON.
//
//   campaign run SHARE SHARES SEED PAIRS
//     the trials of one share; PAIRS of the KV400's pairs and none of the others', or "all"
//   campaign ids SEED SINGLES PAIRS
//     ids of so many trials with one fault, of all cameras together ("all" for each, and for those whose
//     updates begin otherwise than ever as well), and of so many with two of the KV400
//   campaign replay ID [TIMES]
//     the transcript of one trial; compared with TIMES more
//   campaign fields ID
//     its cameras, and each update's faults and image (in hexadecimal digits), in the words of the wire
//   campaign answers
//     what boot loaders answer to the conversations on standard input, one in each line (BootLoaderAnswers.h)
//
// Exit status: 0 when all went right, 1 when a judgement failed, 2 for a wrong command line.

namespace {

using namespace campaign;
using nlohmann::json;

constexpr int kFailed = 1;
constexpr int kWrongCommandLine = 2;
constexpr std::size_t kReportEvery = 200;

template <typename Number>
bool Read(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

void Say(const json& line) {
    std::cout << line.dump() << std::endl;
}

json LineOf(const TrialSet& set, const Tally& tally, std::chrono::milliseconds took) {
    return {{"kind", set.TheKind().name},  {"set", set.Name()},          {"total", set.Total()},
            {"trials", tally.Trials()},    {"met", tally.AllMet()},      {"ends", tally.Ends()},
            {"good", tally.GoodUpdates()}, {"allowed", tally.Allowed()}, {"ms", took.count()}};
}

// Runs this share of a set; counts what has been done since the last report in `unreported`.
bool RunShare(const TrialSet& set, std::size_t share, std::size_t shares, std::size_t& unreported) {
    Tally tally;
    bool isRight = true;
    const auto began = std::chrono::steady_clock::now();
    for (std::size_t number = share; number < set.Size(); number += shares) {
        const TrialPlan plan = set.Plan(number);
        const std::string id = IdOf(plan);
        const UpdateEnd& faultless = FaultlessEnd(*plan.kind, plan.imageSize);
        CurrentTrial::Set(id);
        const TrialEnd end = Trial(plan, &faultless).Run();
        tally.Add(plan, end);
        if (!end.complaint.empty()) {
            isRight = false;
            Say({{"failure", id}, {"why", end.complaint}});
        }
        if (++unreported == kReportEvery) {
            Say({{"done", unreported}});
            unreported = 0;
        }
    }
    const auto took = std::chrono::steady_clock::now() - began;
    Say({{"tally", LineOf(set, tally, std::chrono::duration_cast<std::chrono::milliseconds>(took))}});
    return isRight;
}

int Run(std::size_t share, std::size_t shares, const CampaignSettings& settings) {
    const Campaign campaign = MakeCampaign(settings);
    std::size_t mine = 0;
    for (const TrialSet& set : campaign.sets) {
        mine += (set.Size() + shares - 1 - share) / shares;
    }
    Say({{"total", mine}});
    for (const Campaign::Road& road : campaign.roads) {
        Say({{"road", road.kind->name},
             {"steps", road.steps},
             {"repeats", road.repeats},
             {"forgotten", road.forgotten},
             {"faults", road.faults}});
    }
    bool isRight = true;
    std::size_t unreported = 0;
    for (const TrialSet& set : campaign.sets) {
        isRight &= RunShare(set, share, shares, unreported);
    }
    Say({{"done", unreported}});
    json reasons;
    for (const Allowance& allowance : Allowances()) {
        reasons[std::string(allowance.name)] = allowance.reason;
    }
    Say({{"end", true}, {"reasons", reasons}});
    return isRight ? 0 : kFailed;
}

int TellIds(std::uint64_t seed, std::optional<std::size_t> singles, std::size_t pairs) {
    const Campaign campaign = MakeCampaign({.seed = seed, .pairs = pairs, .oneInOther = 0});
    std::vector<std::string> single;
    for (const TrialSet& set : campaign.sets) {
        const bool isSingle = set.Which() == TrialSet::Faults::One;
        // Other beginnings are for Linux alone: they are told where all are, so that they can be counted.
        const bool isTold = set.HowItBegins() == TrialSet::Begin::AsEver || (isSingle && !singles);
        if (set.Which() == TrialSet::Faults::None || !isTold) {
            continue;
        }
        for (std::size_t number = 0; number < set.Size(); ++number) {
            if (isSingle) {
                single.push_back(IdOf(set.Plan(number)));
            } else {
                Say({{"id", IdOf(set.Plan(number))}});
            }
        }
    }
    const SeededChoice choice(single.size(), singles.value_or(single.size()), SeedOf(seed, "ids"));
    for (std::size_t number = 0; number < choice.Size(); ++number) {
        Say({{"id", single[choice.At(number)]}});
    }
    return 0;
}

std::string Play(const TrialPlan& plan, TrialEnd& end) {
    std::ostringstream lines;
    Transcript transcript(lines);
    // A road without faults shows itself how it ends.
    const bool isRoad = plan.faults.empty() && plan.circumstances.empty();
    end = Trial(plan, isRoad ? nullptr : &FaultlessEnd(*plan.kind, plan.imageSize), &transcript).Run();
    return lines.str();
}

int Replay(const TrialPlan& plan, unsigned times) {
    CurrentTrial::Set(IdOf(plan));
    json faults = json::array();
    for (const PlannedFault& planned : plan.faults) {
        faults.push_back(InWords(planned));
    }
    for (const Circumstance& circumstance : plan.circumstances) {
        faults.push_back(InWords(circumstance));
    }
    Say({{"event", "trial"}, {"id", IdOf(plan)}, {"faults", faults}});
    TrialEnd end;
    const std::string transcript = Play(plan, end);
    std::cout << transcript << std::flush;
    for (unsigned time = 0; time < times; ++time) {
        CurrentTrial::Set(IdOf(plan));
        if (Play(plan, end) != transcript) {
            Say({{"event", "judgement"}, {"why", "the transcript is another one when it is played again"}});
            return kFailed;
        }
    }
    // Not of the transcript: whoever has mistyped an id is not to take it for mended.
    if (const std::size_t met = end.FaultsMet(); met < plan.faults.size()) {
        std::cerr << met << " of " << plan.faults.size() << " planned faults struck\n";
    }
    Say({{"event", "judgement"}, {"held", end.complaint.empty()}, {"why", end.complaint}});
    return end.complaint.empty() ? 0 : kFailed;
}

int TellFields(const TrialPlan& plan) {
    json updates = json::array();
    for (unsigned number = 1; number <= plan.LastUpdate() + 1; ++number) {
        json faults = json::array();
        for (const lab::Fault& fault : plan.FaultsOf(number)) {
            faults.push_back(lab::WriteFault(fault));
        }
        updates.push_back({{"faults", faults}, {"image", lab::HexText(plan.Image(number))}});
    }
    Say({{"cameras", json::array({lab::WriteCameraFields(SettingsOf(*plan.kind)),
                                  lab::WriteCameraFields(SettingsOf(Kinds().front()))})},
         {"updates", updates}});
    return 0;
}

int TellAnswers() {
    for (std::string line; std::getline(std::cin, line);) {
        Say({{"answers", campaign::AnswersOfBootLoader(json::parse(line))}});
    }
    return 0;
}

int WrongCommandLine() {
    std::cerr << "campaign run SHARE SHARES SEED all|PAIRS, ids SEED all|SINGLES PAIRS, replay ID [TIMES], "
                 "fields ID, or answers\n";
    return kWrongCommandLine;
}

int Main(std::span<const std::string_view> arguments) {
    if (arguments.size() == 5 && arguments[0] == "run") {
        std::size_t share = 0;
        std::size_t shares = 0;
        CampaignSettings settings;
        if (!Read(arguments[1], share) || !Read(arguments[2], shares) || share >= shares ||
            !Read(arguments[3], settings.seed)) {
            return WrongCommandLine();
        }
        if (arguments[4] != "all") {
            settings.oneInOther = 0;
            if (!Read(arguments[4], settings.pairs.emplace())) {
                return WrongCommandLine();
            }
        }
        try {
            return Run(share, shares, settings);
        } catch (const campaign::BrokenRoad& broken) {
            Say({{"failure", broken.Id()}, {"why", broken.what()}});
            Say({{"end", true}, {"reasons", json::object()}});
            return kFailed;
        }
    }
    if (arguments.size() == 4 && arguments[0] == "ids") {
        std::uint64_t seed = 0;
        std::size_t singles = 0;
        std::size_t pairs = 0;
        const bool isAll = arguments[2] == "all";
        if (!Read(arguments[1], seed) || (!isAll && !Read(arguments[2], singles)) ||
            !Read(arguments[3], pairs)) {
            return WrongCommandLine();
        }
        return TellIds(seed, isAll ? std::nullopt : std::optional(singles), pairs);
    }
    if ((arguments.size() == 2 || arguments.size() == 3) && arguments[0] == "replay") {
        const auto plan = PlanOf(arguments[1]);
        unsigned times = 0;
        if (!plan || (arguments.size() == 3 && !Read(arguments[2], times))) {
            return WrongCommandLine();
        }
        try {
            return Replay(*plan, times);
        } catch (const campaign::BrokenRoad& broken) {
            Say({{"event", "judgement"}, {"held", false}, {"why", broken.what()}});
            return kFailed;
        }
    }
    if (arguments.size() == 2 && arguments[0] == "fields") {
        const auto plan = PlanOf(arguments[1]);
        return plan ? TellFields(*plan) : WrongCommandLine();
    }
    if (arguments.size() == 1 && arguments[0] == "answers") {
        try {
            return TellAnswers();
        } catch (const std::exception& error) {
            std::cerr << error.what() << '\n';
            return kWrongCommandLine;
        }
    }
    return WrongCommandLine();
}

}  // namespace

int main(int count, char** texts) {
    campaign::CurrentTrial::Watch();
    const std::vector<std::string_view> arguments(texts + 1, texts + count);
    return Main(arguments);
}
