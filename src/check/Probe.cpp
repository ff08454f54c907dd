#include "check/Probe.h"

#include "check/JsonWriter.h"

#include <algorithm>

namespace check {
namespace {

constexpr int kDifferent = 10;

std::string_view Word(ProbeOutcome outcome) {
    switch (outcome) {
        case ProbeOutcome::AsExpected:
            return "as expected";
        case ProbeOutcome::Different:
            return "different";
        case ProbeOutcome::NotAsked:
            break;
    }
    return "not asked";
}

std::size_t CountOf(const std::vector<Probe>& probes, ProbeOutcome outcome) {
    return static_cast<std::size_t>(std::count_if(
        probes.begin(), probes.end(), [outcome](const Probe& probe) { return probe.outcome == outcome; }));
}

}  // namespace

Probe Asked(unsigned contract, std::string id, std::string question, std::string expected, std::string seen) {
    const auto outcome = expected == seen ? ProbeOutcome::AsExpected : ProbeOutcome::Different;
    return {contract, std::move(id), std::move(question), std::move(expected), std::move(seen), outcome};
}

Probe NotAsked(unsigned contract, std::string id, std::string question, std::string why) {
    return {contract, std::move(id), std::move(question), {}, std::move(why), ProbeOutcome::NotAsked};
}

std::string ProbesText(const std::vector<Probe>& probes) {
    std::string text = std::to_string(CountOf(probes, ProbeOutcome::AsExpected)) + " as expected, " +
                       std::to_string(CountOf(probes, ProbeOutcome::Different)) + " different, " +
                       std::to_string(CountOf(probes, ProbeOutcome::NotAsked)) + " not asked\n";
    for (const Probe& probe : probes) {
        text += "\n" + std::to_string(probe.contract) + ". " + probe.question + ": " +
                std::string(Word(probe.outcome)) + "\n";
        if (probe.outcome == ProbeOutcome::Different) {
            text += "     expected  " + probe.expected + "\n";
        }
        text += (probe.outcome == ProbeOutcome::NotAsked ? "     " : "     seen      ") + probe.seen + "\n";
    }
    return text;
}

std::string ProbesJson(const std::vector<Probe>& probes, std::string_view programVersion) {
    JsonWriter json;
    json.BeginObject()
        .Text("program", "VeyraCameraDfuCheck")
        .Text("version", programVersion)
        .Number("exit_code", static_cast<std::uint64_t>(ExitCodeOf(probes)))
        .BeginList("probes");
    for (const Probe& probe : probes) {
        json.BeginObject()
            .Number("contract", probe.contract)
            .Text("id", probe.id)
            .Text("question", probe.question)
            .Text("outcome", Word(probe.outcome))
            .Text("expected", probe.expected)
            .Text("seen", probe.seen)
            .End();
    }
    return json.End().End().Finished();
}

int ExitCodeOf(const std::vector<Probe>& probes) {
    return CountOf(probes, ProbeOutcome::Different) == 0 ? 0 : kDifferent;
}

}  // namespace check
