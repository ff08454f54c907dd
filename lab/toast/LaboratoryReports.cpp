#include "lab/toast/LaboratoryReports.h"

#include <nlohmann/json.hpp>

#include "lab/wire/Utf8.h"

namespace lab::toast {

using nlohmann::json;

void LaboratoryReports::Open(Wire& wire) {
    const std::lock_guard lock(mutex_);
    wire_ = &wire;
}

void LaboratoryReports::Close() {
    const std::lock_guard lock(mutex_);
    wire_ = nullptr;
}

void LaboratoryReports::PromptCall(std::string_view method, const std::vector<std::wstring>& texts) {
    json utf8Texts = json::array();
    for (const std::wstring& text : texts) {
        utf8Texts.push_back(Utf8(text));
    }
    Send({{"event", "prompt-call"}, {"method", method}, {"texts", utf8Texts}});
}

void LaboratoryReports::Advised(DWORD cookie) {
    Send({{"event", "advised"}, {"cookie", cookie}});
}

void LaboratoryReports::Unadvised(DWORD cookie) {
    Send({{"event", "unadvised"}, {"cookie", cookie}});
}

void LaboratoryReports::Answer(LONG code, std::size_t sinks, HRESULT result) {
    Send({{"event", "answer"}, {"code", code}, {"sinks", sinks}, {"result", result}});
}

void LaboratoryReports::Done(std::string_view command) {
    Send(DoneEvent(command));
}

void LaboratoryReports::Refused(std::string_view command, std::string_view why) {
    Send(RefusedEvent(command, why));
}

void LaboratoryReports::Send(const json& event) {
    const std::lock_guard lock(mutex_);
    if (wire_ != nullptr) {
        wire_->Send(event);
    }
}

}  // namespace lab::toast
