#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "toast/conversation/ConversationListener.h"

namespace toast {

// Records a conversation in the Application log, under this program's own source: the one record of how far a
// download came. The events' texts are in Messages.mc. Used by one thread. A log that cannot be written is
// done without.
class ApplicationLog final : public ConversationListener {
  public:
    ApplicationLog();
    ~ApplicationLog();

    ApplicationLog(const ApplicationLog&) = delete;
    ApplicationLog& operator=(const ApplicationLog&) = delete;

    void Asked(const Question& question) override;
    void Replaced(const Question& question) override;
    void Lapsed(const Question& question) override;
    void Answered(std::int32_t answer, const std::vector<ClientId>& clients) override;
    void Started(std::optional<std::uint32_t> blocks) override;
    void Ended(Ending ending, std::uint32_t taken, std::optional<std::uint32_t> blocks) override;

  private:
    void Report(DWORD event, const std::vector<std::wstring>& inserts) const;

    HANDLE const source_;
};

}  // namespace toast
