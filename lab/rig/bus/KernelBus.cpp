#include "lab/rig/bus/KernelBus.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace lab::rig {

using nlohmann::json;

KernelBus::KernelBus(Asker ask) : ask_(std::move(ask)) {}

KernelBus::~KernelBus() = default;

json KernelBus::Ask(std::unique_lock<std::mutex>& owner, std::string_view command, json fields) {
    const unsigned question = ++lastQuestion_;
    fields["command"] = command;
    ask_({{"event", "ask"}, {"to", "guest"}, {"question", question}, {"command", fields}});
    answered_.wait(owner, [&] { return isEnded_ || answers_.contains(question); });
    const auto answer = answers_.find(question);
    if (answer == answers_.end()) {
        return {{"errno", "ENODEV"}, {"why", "nobody answers any more"}};
    }
    json content = std::move(*answer->second);
    answers_.erase(answer);
    return content;
}

void KernelBus::TakeAnswer(unsigned question, const json& answer) {
    answers_[question] = std::make_unique<json>(answer);
    answered_.notify_all();
}

void KernelBus::End() {
    isEnded_ = true;
    answered_.notify_all();
}

}  // namespace lab::rig
