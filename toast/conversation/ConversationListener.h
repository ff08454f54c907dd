#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toast/conversation/Event.h"
#include "toast/conversation/Page.h"

namespace toast {

inline constexpr std::int32_t kAnswerNo = 0;
inline constexpr std::int32_t kAnswerYes = 1;

// Hears what follows from a conversation: on the thread that it is held on, with no lock held. Must not call
// the conversation.
class ConversationListener {
  public:
    virtual void Asked(const Question& question) = 0;
    // A later question has taken its place: nobody answers it.
    virtual void Replaced(const Question& question) = 0;
    // Every client that asked it has gone: nobody answers it.
    virtual void Lapsed(const Question& question) = 0;
    // The one answer to a question, for those clients that asked it.
    virtual void Answered(std::int32_t answer, const std::vector<ClientId>& clients) = 0;
    // `blocks` is absent for a download that tells a number before its start.
    virtual void Started(std::optional<std::uint32_t> blocks) = 0;
    // `taken` and `blocks` are 0 and absent when there was no download.
    virtual void Ended(Ending ending, std::uint32_t taken, std::optional<std::uint32_t> blocks) = 0;

  protected:
    ConversationListener() = default;
    ConversationListener(const ConversationListener&) = default;
    ConversationListener& operator=(const ConversationListener&) = default;
    ~ConversationListener() = default;
};

}  // namespace toast
