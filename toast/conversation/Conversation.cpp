#include "toast/conversation/Conversation.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace toast {
namespace {

Ending EndingOf(DownloadEnding ending) {
    switch (ending) {
        case DownloadEnding::kAllTaken:
            return Ending::kAllTaken;
        case DownloadEnding::kLastMayBeMissing:
            return Ending::kLastMayBeMissing;
        case DownloadEnding::kStopped:
            return Ending::kStopped;
        case DownloadEnding::kUnknown:
            break;
    }
    return Ending::kUnknown;
}

bool Contains(const std::vector<ClientId>& clients, ClientId client) {
    return std::find(clients.begin(), clients.end(), client) != clients.end();
}

}  // namespace

Conversation::Conversation(ConversationListener& listener) : listener_(listener) {}

void Conversation::Take(const Event& event, TimePoint now) {
    std::visit([&](const auto& what) { TakeOf(event.client, what, now); }, event.what);
}

void Conversation::TakeOf(ClientId client, const ClientCame&, TimePoint) {
    clients_.insert(client);
}

void Conversation::TakeOf(ClientId client, const Question& question, TimePoint) {
    if (question_ && question_->question == question) {
        if (!Contains(question_->clients, client)) {
            question_->clients.push_back(client);
        }
        return;
    }
    if (question_) {
        listener_.Replaced(question_->question);
    }
    question_ = OpenQuestion{question, {client}, question_.has_value()};
    listener_.Asked(question);
}

void Conversation::TakeOf(ClientId client, const StatusLine& line, TimePoint now) {
    if (const auto* start = std::get_if<DownloadStart>(&line)) {
        Start(client, start->blocks, now);
    } else if (const auto* taken = std::get_if<BlocksTaken>(&line)) {
        if (!download_ && taken->number > 0) {
            Start(client, std::nullopt, now);
        }
        if (download_ && download_->client == client) {
            download_->count.Take(taken->number, now);
        }
    }
}

void Conversation::TakeOf(ClientId client, const DownloadOver&, TimePoint now) {
    if (download_) {
        if (download_->client == client) {
            EndDownload(EndingOf(download_->count.Ending()), now);
        }
    } else if (!waiting_ || Contains(waiting_->clients, client)) {
        EndWithoutDownload(Ending::kNeverBegan);
    }
}

void Conversation::TakeOf(ClientId client, const ClientLeft&, TimePoint now) {
    clients_.erase(client);
    lastLeft_ = now;
    if (question_ && std::erase(question_->clients, client) > 0 && question_->clients.empty()) {
        listener_.Lapsed(question_->question);
        question_.reset();
    }
    if (waiting_ && std::erase(waiting_->clients, client) > 0 && waiting_->clients.empty()) {
        EndWithoutDownload(Ending::kClientGone);
    }
    if (download_ && download_->client == client) {
        EndDownload(Ending::kClientGone, now);
    }
}

void Conversation::Press(Button button, TimePoint now) {
    if (button == Button::kDismiss) {
        Dismiss();
    } else if (question_) {
        waiting_ = Waiting{question_->clients, now};
        end_.reset();
        Answer(kAnswerYes);
    }
}

void Conversation::Tick(TimePoint now) {
    if (waiting_ && !download_ && now - waiting_->since >= kStartPatience) {
        EndWithoutDownload(Ending::kNothingStarted);
    }
    if (end_ && clients_.empty() && now - lastLeft_ >= kEndPatience) {
        end_.reset();
    }
}

void Conversation::Start(ClientId client, std::optional<std::uint32_t> blocks, TimePoint now) {
    if (download_) {
        EndDownload(EndingOf(download_->count.Ending()), now);
    }
    waiting_.reset();
    end_.reset();
    download_.emplace(Download{client, DownloadCount(blocks, now)});
    listener_.Started(blocks);
}

void Conversation::Answer(std::int32_t answer) {
    const std::vector<ClientId> clients = std::move(question_->clients);
    question_.reset();
    listener_.Answered(answer, clients);
}

void Conversation::EndWithoutDownload(Ending ending) {
    waiting_.reset();
    end_ = End{ending, 0, std::nullopt};
    listener_.Ended(ending, 0, std::nullopt);
}

// What was accepted during the download has had no time to start yet.
void Conversation::EndDownload(Ending ending, TimePoint now) {
    const DownloadCount& count = download_->count;
    end_ = End{ending, count.Taken(), count.Percent()};
    listener_.Ended(ending, count.Taken(), count.Blocks());
    download_.reset();
    if (waiting_) {
        waiting_->since = now;
    }
}

void Conversation::Dismiss() {
    if (question_) {
        Answer(kAnswerNo);
    } else if (download_ && !download_->isHidden) {
        download_->isHidden = true;
    } else if (!download_ && waiting_ && !waiting_->isHidden) {
        waiting_->isHidden = true;
    } else {
        end_.reset();
    }
}

Page Conversation::Shown(TimePoint now) const {
    Page page;
    if (question_) {
        page = QuestionPage();
        AddDownload(page, now);
    } else if (download_) {
        if (!download_->isHidden) {
            page.kind = PageKind::kDownload;
            AddDownload(page, now);
        }
    } else if (waiting_) {
        if (!waiting_->isHidden) {
            page.kind = PageKind::kWaiting;
        }
    } else if (end_) {
        page.kind = PageKind::kEnd;
        page.ending = end_->ending;
        page.blocksTaken = end_->taken;
        page.percent = end_->percent;
    }
    return page;
}

Page Conversation::QuestionPage() const {
    Page page;
    page.kind = PageKind::kQuestion;
    page.question = question_->question;
    page.relation = RelationOf(page.question.offered, page.question.present);
    page.replacesEarlier = question_->replacesEarlier;
    return page;
}

void Conversation::AddDownload(Page& page, TimePoint now) const {
    if (!download_) {
        return;
    }
    const DownloadCount& count = download_->count;
    page.hasDownload = true;
    page.percent = count.Percent();
    page.blocksTaken = count.Taken();
    page.timeLeft = count.SecondsLeft(now);
    page.isSilent = count.IsSilent(now);
}

}  // namespace toast
