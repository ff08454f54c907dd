#include "lab/guest/CommandTable.h"

#include <exception>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/guest/Answers.h"

namespace lab::guest {
namespace {

using nlohmann::json;

bool IsStage(const json& message) {
    return message.is_object() && message.value("reply", json()) == "stage";
}

}  // namespace

void CommandTable::Add(std::string name, Handler handler) {
    handlers_[std::move(name)] = std::move(handler);
}

std::optional<json> CommandTable::Answer(std::string_view line) const {
    json message = json::parse(line, nullptr, false);
    if (IsStage(message)) {
        return std::nullopt;
    }
    const json asker = message.is_object() ? message.value("for", json()) : json();
    std::optional<json> answer;
    try {
        answer = CarryOut(Command(std::move(message)));
    } catch (const InvalidCommand& error) {
        answer = RefusedAnswer("", error.what());
    }
    if (answer && !asker.is_null()) {
        (*answer)["for"] = asker;
    }
    return answer;
}

std::optional<json> CommandTable::CarryOut(const Command& command) const {
    const auto found = handlers_.find(command.Name());
    if (found == handlers_.end()) {
        return RefusedAnswer(command.Name(), "there is no such command");
    }
    try {
        const std::optional<json> fields = found->second(command);
        return fields ? std::optional(DoneAnswer(command.Name(), *fields)) : std::nullopt;
    } catch (const std::system_error& error) {
        return KernelRefusedAnswer(command.Name(), error);
    } catch (const std::exception& error) {
        return RefusedAnswer(command.Name(), error.what());
    }
}

}  // namespace lab::guest
