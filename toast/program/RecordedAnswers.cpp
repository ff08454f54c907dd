#include "toast/program/RecordedAnswers.h"

namespace toast {

RecordedAnswers::RecordedAnswers(ConversationListener& record, ClientList& clients)
    : record_(record), clients_(clients) {}

void RecordedAnswers::Asked(const Question& question) {
    record_.Asked(question);
}

void RecordedAnswers::Replaced(const Question& question) {
    record_.Replaced(question);
}

void RecordedAnswers::Lapsed(const Question& question) {
    record_.Lapsed(question);
}

void RecordedAnswers::Answered(std::int32_t answer, const std::vector<ClientId>& clients) {
    clients_.Fire(answer, clients);
    record_.Answered(answer, clients);
}

void RecordedAnswers::Started(std::optional<std::uint32_t> blocks) {
    record_.Started(blocks);
}

void RecordedAnswers::Ended(Ending ending, std::uint32_t taken, std::optional<std::uint32_t> blocks) {
    record_.Ended(ending, taken, blocks);
}

}  // namespace toast
