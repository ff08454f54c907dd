#include "lab/guest/SystemCommands.h"

#include <sys/wait.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/guest/Answers.h"
#include "lab/guest/KernelLog.h"

namespace lab::guest {
namespace {

using nlohmann::json;

constexpr char kRun[] = "run";
constexpr std::uint64_t kLongestLimitMs = 3'600'000;

}  // namespace

SystemCommands::SystemCommands(const Places& places) : places_(places), modules_(places.modules) {}

void SystemCommands::AddTo(CommandTable& table) {
    table.Add("kernel-log", [this](const Command& command) { return KernelLog(command); });
    table.Add("load", [this](const Command& command) {
        modules_.Load(command.Text("modules"));
        return json::object();
    });
    table.Add(kRun, [this](const Command& command) {
        Run(command);
        return std::nullopt;
    });
    table.Add("power-off", [this](const Command&) {
        isToEnd_ = true;
        return json::object();
    });
}

std::optional<json> SystemCommands::TakeProgramEnd() {
    if (!program_ || !program_->TakeOutput()) {
        return std::nullopt;
    }
    json answer = DoneAnswer(kRun, {{"status", program_->Status()},
                                    {"output", program_->Text()},
                                    {"is_cut", program_->Text().size() == RunningProgram::kMostOutput},
                                    {"is_out_of_time", program_->IsOutOfTime()}});
    program_.reset();
    // What the program has left behind is this process's, as of the first one.
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    return answer;
}

json SystemCommands::KernelLog(const Command& command) const {
    const std::uint64_t first = command.Number("since", 0, std::numeric_limits<std::uint64_t>::max());
    json records = json::array();
    std::uint64_t next = first;
    for (const KernelRecord& record : KernelRecords(places_.dev / "kmsg", first)) {
        records.push_back({{"level", record.level},
                           {"number", record.number},
                           {"microseconds", record.microseconds},
                           {"text", record.text}});
        next = record.number + 1;
    }
    return {{"records", records}, {"next", next}};
}

void SystemCommands::Run(const Command& command) {
    if (program_) {
        throw InvalidCommand("another program runs");
    }
    std::vector<std::string> words{command.Text("program")};
    for (std::string& argument : command.Texts("arguments")) {
        words.push_back(std::move(argument));
    }
    const std::chrono::milliseconds limit(command.Number("limit_ms", 1, kLongestLimitMs));
    program_ = std::make_unique<RunningProgram>(words, limit);
}

}  // namespace lab::guest
