#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toast/conversation/ConversationListener.h"
#include "toast/server/ClientList.h"

namespace toast {

// Fires a conversation's answers at its clients, and has everything recorded.
class RecordedAnswers final : public ConversationListener {
  public:
    // Both must outlive this object.
    RecordedAnswers(ConversationListener& record, ClientList& clients);

    void Asked(const Question& question) override;
    void Replaced(const Question& question) override;
    void Lapsed(const Question& question) override;
    void Answered(std::int32_t answer, const std::vector<ClientId>& clients) override;
    void Started(std::optional<std::uint32_t> blocks) override;
    void Ended(Ending ending, std::uint32_t taken, std::optional<std::uint32_t> blocks) override;

  private:
    ConversationListener& record_;
    ClientList& clients_;
};

}  // namespace toast
