#include "toast/record/ApplicationLog.h"

#include <algorithm>

#include "Messages.h"
#include "toast/registration/RegistrationPlan.h"

namespace toast {
namespace {

DWORD EventOf(Ending ending) {
    switch (ending) {
        case Ending::kAllTaken:
            return EVENT_ALL_TAKEN;
        case Ending::kLastMayBeMissing:
            return EVENT_LAST_MAY_BE_MISSING;
        case Ending::kStopped:
            return EVENT_STOPPED;
        case Ending::kNeverBegan:
            return EVENT_NEVER_BEGAN;
        case Ending::kNothingStarted:
            return EVENT_NOTHING_STARTED;
        case Ending::kClientGone:
            return EVENT_CLIENT_GONE;
        case Ending::kUnknown:
            break;
    }
    return EVENT_UNKNOWN_END;
}

// An event's number tells how severe it is.
WORD TypeOf(DWORD event) {
    constexpr DWORD kSeverityShift = 30;
    constexpr DWORD kWarning = 2;
    return event >> kSeverityShift == kWarning ? EVENTLOG_WARNING_TYPE : EVENTLOG_INFORMATION_TYPE;
}

// Whoever shows an event takes a per cent sign with a number for another insert, in an insert too.
std::wstring WithoutPerCentSigns(std::wstring text) {
    constexpr wchar_t kFullWidthPerCentSign = 0xFF05;
    std::replace(text.begin(), text.end(), L'%', kFullWidthPerCentSign);
    return text;
}

std::wstring NumberText(std::optional<std::uint32_t> number) {
    return number ? std::to_wstring(*number) : L"-";
}

std::vector<std::wstring> TextsOf(const Question& question) {
    return {WithoutPerCentSigns(question.present), WithoutPerCentSigns(question.offered)};
}

}  // namespace

ApplicationLog::ApplicationLog() : source_(RegisterEventSourceW(nullptr, kEventSource)) {}

ApplicationLog::~ApplicationLog() {
    if (source_ != nullptr) {
        DeregisterEventSource(source_);
    }
}

void ApplicationLog::Asked(const Question& question) {
    Report(EVENT_ASKED, TextsOf(question));
}

void ApplicationLog::Replaced(const Question& question) {
    Report(EVENT_REPLACED, TextsOf(question));
}

void ApplicationLog::Lapsed(const Question& question) {
    Report(EVENT_LAPSED, TextsOf(question));
}

void ApplicationLog::Answered(std::int32_t answer, const std::vector<ClientId>&) {
    Report(answer == kAnswerYes ? EVENT_ANSWERED_YES : EVENT_ANSWERED_NO, {});
}

void ApplicationLog::Started(std::optional<std::uint32_t> blocks) {
    if (blocks) {
        Report(EVENT_STARTED, {NumberText(blocks)});
    } else {
        Report(EVENT_STARTED_UNANNOUNCED, {});
    }
}

void ApplicationLog::Ended(Ending ending, std::uint32_t taken, std::optional<std::uint32_t> blocks) {
    Report(EventOf(ending), {NumberText(taken), NumberText(blocks)});
}

void ApplicationLog::Report(DWORD event, const std::vector<std::wstring>& inserts) const {
    if (source_ == nullptr) {
        return;
    }
    std::vector<const wchar_t*> texts;
    texts.reserve(inserts.size());
    for (const std::wstring& insert : inserts) {
        texts.push_back(insert.c_str());
    }
    ReportEventW(source_, TypeOf(event), 0, event, nullptr, static_cast<WORD>(texts.size()), 0, texts.data(),
                 nullptr);
}

}  // namespace toast
