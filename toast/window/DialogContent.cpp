#include "toast/window/DialogContent.h"

#include <algorithm>
#include <chrono>
#include <string_view>

#include "toast/conversation/Conversation.h"
#include "toast/window/TextIds.h"

namespace toast {
namespace {

using std::chrono::seconds;

constexpr std::wstring_view kParagraph = L"\n\n";

std::wstring VersionOf(const std::wstring& version, const Texts& texts) {
    return version.empty() ? texts.Text(TEXT_VERSION_NOT_TOLD) : version;
}

UINT OfferOf(VersionRelation relation) {
    switch (relation) {
        case VersionRelation::kNewer:
            return TEXT_OFFER_NEWER;
        case VersionRelation::kOlder:
            return TEXT_OFFER_OLDER;
        case VersionRelation::kDifferent:
            break;
    }
    return TEXT_OFFER_DIFFERENT;
}

std::wstring QuestionText(const Page& page, const Texts& texts) {
    std::wstring text = texts.Text(OfferOf(page.relation), {VersionOf(page.question.present, texts),
                                                            VersionOf(page.question.offered, texts)});
    if (page.replacesEarlier) {
        text.append(kParagraph).append(texts.Text(TEXT_REPLACES));
    }
    if (page.hasDownload) {
        text.append(kParagraph)
            .append(page.percent ? texts.Text(TEXT_MEANWHILE, {std::to_wstring(*page.percent)})
                                 : texts.Text(TEXT_MEANWHILE_UNKNOWN));
    }
    return text;
}

void AddQuestion(DialogContent& content, const Page& page, const Texts& texts) {
    content.instruction =
        texts.Text(page.relation == VersionRelation::kOlder ? TEXT_QUESTION_OLDER : TEXT_QUESTION);
    content.content = QuestionText(page, texts);
    content.footer = texts.Text(TEXT_QUESTION_WARNING);
    content.updateButton = texts.Text(TEXT_BUTTON_UPDATE);
    content.dismissButton = texts.Text(TEXT_BUTTON_NOT_NOW);
    content.needsAttention = true;
}

void AddWaiting(DialogContent& content, const Texts& texts) {
    content.instruction = texts.Text(TEXT_WAITING);
    content.content = texts.Text(TEXT_WAITING_DETAIL);
    content.dismissButton = texts.Text(TEXT_BUTTON_HIDE);
    content.bar = DialogContent::Bar::kMoving;
}

// In steps of ten seconds below one minute, of minutes above: what changes at every look says less.
std::wstring TimeLeftText(seconds left, const Texts& texts) {
    constexpr seconds::rep kStep = 10;
    constexpr seconds::rep kMinute = 60;
    const seconds::rep steps = std::max<seconds::rep>((left.count() + kStep - 1) / kStep, 1);
    if (steps * kStep < kMinute) {
        return texts.Text(TEXT_SECONDS_LEFT, {std::to_wstring(steps * kStep)});
    }
    const seconds::rep minutes = (left.count() + kMinute / 2) / kMinute;
    return minutes <= 1 ? texts.Text(TEXT_MINUTE_LEFT)
                        : texts.Text(TEXT_MINUTES_LEFT, {std::to_wstring(minutes)});
}

std::wstring ProspectText(const Page& page, const Texts& texts) {
    if (page.isSilent) {
        return texts.Text(TEXT_DOWNLOAD_SILENT);
    }
    return page.timeLeft ? TimeLeftText(*page.timeLeft, texts) : texts.Text(TEXT_TIME_NOT_KNOWN);
}

// Always two lines: a window that changes its height is hard to read.
std::wstring DownloadText(const Page& page, const Texts& texts) {
    constexpr int kAll = 100;
    if (page.percent == kAll) {
        return texts.Text(TEXT_DOWNLOAD_ALL_TAKEN) + L"\n" + texts.Text(TEXT_DOWNLOAD_NOT_FINISHED);
    }
    const std::wstring progress = page.percent
                                      ? texts.Text(TEXT_DOWNLOAD_PERCENT, {std::to_wstring(*page.percent)})
                                      : texts.Text(TEXT_DOWNLOAD_BLOCKS, {std::to_wstring(page.blocksTaken)});
    return progress + L"\n" + ProspectText(page, texts);
}

void AddDownload(DialogContent& content, const Page& page, const Texts& texts) {
    content.instruction = texts.Text(TEXT_DOWNLOAD);
    content.content = DownloadText(page, texts);
    content.footer = texts.Text(TEXT_DOWNLOAD_WARNING);
    content.dismissButton = texts.Text(TEXT_BUTTON_HIDE);
    content.bar = page.percent ? DialogContent::Bar::kPercent : DialogContent::Bar::kMoving;
    content.percent = page.percent.value_or(0);
}

void AddEndText(DialogContent& content, const Page& page, const Texts& texts) {
    const std::wstring percent = std::to_wstring(page.percent.value_or(0));
    switch (page.ending) {
        case Ending::kAllTaken:
            content.instruction = texts.Text(TEXT_END_ALL_TAKEN);
            content.content = texts.Text(TEXT_END_ALL_TAKEN_DETAIL);
            break;
        case Ending::kLastMayBeMissing:
            content.instruction = texts.Text(TEXT_END_LAST_MISSING);
            content.content = texts.Text(TEXT_END_LAST_MISSING_DETAIL);
            break;
        case Ending::kStopped:
            content.instruction = texts.Text(TEXT_END_STOPPED, {percent});
            content.content = texts.Text(TEXT_END_STOPPED_DETAIL);
            break;
        case Ending::kUnknown:
            content.instruction = texts.Text(TEXT_END_UNKNOWN);
            content.content = texts.Text(TEXT_END_UNKNOWN_DETAIL);
            break;
        case Ending::kNeverBegan:
            content.instruction = texts.Text(TEXT_END_NEVER_BEGAN);
            content.content = texts.Text(TEXT_END_NEVER_BEGAN_DETAIL);
            break;
        case Ending::kNothingStarted:
            content.instruction = texts.Text(TEXT_END_NOTHING_STARTED);
            content.content = texts.Text(TEXT_END_NOTHING_STARTED_DETAIL,
                                         {std::to_wstring(Conversation::kStartPatience.count())});
            break;
        case Ending::kClientGone:
            content.instruction = texts.Text(TEXT_END_CLIENT_GONE);
            content.content = texts.Text(TEXT_END_CLIENT_GONE_DETAIL);
            if (page.percent) {
                content.content =
                    texts.Text(TEXT_END_CLIENT_GONE_PERCENT, {percent}) + L" " + content.content;
            }
            break;
    }
}

void AddEnd(DialogContent& content, const Page& page, const Texts& texts) {
    AddEndText(content, page, texts);
    content.dismissButton = texts.Text(TEXT_BUTTON_CLOSE);
    content.isWarning = page.ending != Ending::kAllTaken;
    content.needsAttention = true;
}

}  // namespace

bool DialogContent::operator==(const DialogContent& other) const = default;

bool DialogContent::HasFrameOf(const DialogContent& other) const {
    DialogContent same = other;
    same.content = content;
    same.percent = percent;
    return *this == same;
}

DialogContent ContentOf(const Page& page, const Texts& texts) {
    DialogContent content;
    content.title = texts.Text(TEXT_TITLE);
    switch (page.kind) {
        case PageKind::kQuestion:
            AddQuestion(content, page, texts);
            break;
        case PageKind::kWaiting:
            AddWaiting(content, texts);
            break;
        case PageKind::kDownload:
            AddDownload(content, page, texts);
            break;
        case PageKind::kEnd:
            AddEnd(content, page, texts);
            break;
        case PageKind::kNone:
            break;
    }
    return content;
}

}  // namespace toast
