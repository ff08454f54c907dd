#include "lab/toast/LaboratoryCommands.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

namespace lab::toast {
namespace {

using nlohmann::json;

std::string TextField(const json& command, const char* name) {
    const auto field = command.find(name);
    return field != command.end() && field->is_string() ? field->get<std::string>() : std::string();
}

// A 32-bit value, written as a signed or an unsigned number.
std::optional<LONG> NumberField(const json& command, const char* name) {
    const auto field = command.find(name);
    if (field == command.end() || !field->is_number_integer()) {
        return std::nullopt;
    }
    const auto number = field->get<std::int64_t>();
    if (number < INT32_MIN || number > UINT32_MAX) {
        return std::nullopt;
    }
    return static_cast<LONG>(number);
}

}  // namespace

LaboratoryCommands::LaboratoryCommands(std::shared_ptr<ServerParts> parts, UserResponder& responder)
    : parts_(std::move(parts)), responder_(responder) {}

void LaboratoryCommands::TakeStage(const json& stage) {
    parts_->refusesActivation = stage.value("refuse_activation", false);
}

void LaboratoryCommands::CarryOut(const json& command) {
    const std::string name = TextField(command, "command");
    if (name == "respond") {
        Respond(command);
    } else if (name == "fail") {
        Fail(command);
    } else if (name == "hang") {
        Hang(command);
    } else if (name == "behave") {
        parts_->failures.Clear();
        parts_->hangs.Release();
        parts_->reports.Done("behave");
    } else if (name == "release") {
        parts_->hangs.Release();
        parts_->reports.Done("release");
    } else if (name == "die") {
        Die();
    } else {
        parts_->reports.Refused(name, "no such command");
    }
}

void LaboratoryCommands::Respond(const json& command) {
    const std::optional<LONG> code = NumberField(command, "code");
    if (!code) {
        parts_->reports.Refused("respond", "code is no 32-bit number");
        return;
    }
    responder_.Post(*code);
}

void LaboratoryCommands::Fail(const json& command) {
    const std::optional<LONG> result = NumberField(command, "hresult");
    if (!result) {
        parts_->reports.Refused("fail", "hresult is no 32-bit number");
    } else if (!parts_->failures.Set(TextField(command, "method"), *result)) {
        parts_->reports.Refused("fail", "no such method");
    } else {
        parts_->reports.Done("fail");
    }
}

void LaboratoryCommands::Hang(const json& command) {
    const LONG ms = NumberField(command, "ms").value_or(0);
    const LONG skip = NumberField(command, "skip").value_or(0);
    const std::string method = TextField(command, "method");
    if (ms < 0 || skip < 0) {
        parts_->reports.Refused("hang", "ms and skip are counts");
    } else if (method != "Unadvise" && !parts_->failures.Knows(method)) {
        parts_->reports.Refused("hang", "no such method");
    } else {
        parts_->hangs.Set(method, static_cast<unsigned>(skip), std::chrono::milliseconds(ms));
        parts_->reports.Done("hang");
    }
}

// Windows forgets the class of a process that died; a machine that does not would send every later client to
// the dead server, so the class is revoked before the process ends, and nothing else is.
void LaboratoryCommands::Die() {
    parts_->reports.Done("die");
    parts_->crashing = true;
    parts_->lifetime->LeaveNow();
}

}  // namespace lab::toast
