#include "check/Probe.h"

#include "check/JsonWriter.h"
#include "check/LinkParts.h"
#include "check/Words.h"

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

Probe ProbeLinks(const std::vector<std::string>& links) {
    constexpr const char* kQuestion = "the links under which Media Foundation lists USB cameras";
    std::vector<std::string> kinds;
    for (const std::string& link : links) {
        if (!EqualsIgnoringCase(std::string_view(link).substr(0, 8), R"(\\?\usb#)")) {
            continue;
        }
        std::string kind(CategoryOfLink(link));
        kind += link.ends_with("\\global") ? " ...\\global" : " without \\global";
        if (std::find(kinds.begin(), kinds.end(), kind) == kinds.end()) {
            kinds.push_back(std::move(kind));
        }
    }
    if (kinds.empty()) {
        return NotAsked(8, "camera-links", kQuestion, "no USB camera is present");
    }
    std::sort(kinds.begin(), kinds.end());
    const std::string seen = Listed(kinds);
    const bool isExpected = seen == "video camera ...\\global" ||
                            seen == "sensor camera ...\\global and video camera ...\\global";
    return Asked(8, "camera-links", kQuestion, isExpected ? seen : "video camera ...\\global", seen);
}

Probe ProbeOsDescriptors(const std::vector<RememberedAnswer>& answers) {
    constexpr const char* kQuestion = "the remembered answers to the Microsoft OS descriptor request";
    if (answers.empty()) {
        return NotAsked(18, "os-descriptors", kQuestion, "no camera of the family was ever plugged in here");
    }
    std::vector<std::string> remembered;
    remembered.reserve(answers.size());
    for (const RememberedAnswer& answer : answers) {
        const bool hasOne = answer.bytes.size() == 2 && answer.bytes[0] == 1;
        const char* const told = hasOne ? " has one" : answer.bytes.empty() ? " tells nothing" : " has none";
        remembered.push_back(answer.device + told);
    }
    return NotAsked(18, "os-descriptors", kQuestion,
                    "which answer is right, the camera alone knows; " + Listed(remembered));
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
