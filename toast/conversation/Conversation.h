#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include "toast/conversation/ConversationListener.h"
#include "toast/conversation/DownloadCount.h"
#include "toast/conversation/Event.h"
#include "toast/conversation/Page.h"
#include "toast/conversation/TimePoint.h"

namespace toast {

// Decides what is shown, when a question is answered, and with what; knows no window and no COM.
//
// One question is open at a time. It waits for the user for as long as a client that asked it is there, and
// is answered once: by a button, by the window's closing, or never, when a later question with other versions
// has taken its place. The same versions again leave it as it is, with one more client to be answered.
//
// One download is told of at a time: the one that started last. Only the client that started it tells its
// numbers and its end. It goes on behind a question, and behind a window that the user has hidden.
//
// All members on one thread. `now` never goes back.
class Conversation {
  public:
    enum class Button {
        kUpdate,
        kDismiss,  // "Not now", "Hide" or "Close", and the closing of the window
    };

    // A download has to start this long after "Update", or the user is told that nothing has started.
    static constexpr std::chrono::seconds kStartPatience{60};
    // An end that nobody reads is taken away this long after the last client has gone.
    static constexpr std::chrono::minutes kEndPatience{10};

    // The listener must outlive this object.
    explicit Conversation(ConversationListener& listener);

    void Take(const Event& event, TimePoint now);

    // A button of the page that is shown. One that the page does not have does nothing.
    void Press(Button button, TimePoint now);

    // Lets time pass; to be called now and then for as long as IsTimed.
    void Tick(TimePoint now);

    // Whether time alone can change what is shown.
    [[nodiscard]] bool IsTimed() const { return waiting_ || download_ || end_; }

    [[nodiscard]] Page Shown(TimePoint now) const;

  private:
    struct OpenQuestion {
        Question question;
        std::vector<ClientId> clients;
        bool replacesEarlier;
    };

    // For a download that the user has accepted.
    struct Waiting {
        std::vector<ClientId> clients;
        TimePoint since;
        bool isHidden = false;
    };

    struct Download {
        ClientId client;
        DownloadCount count;
        bool isHidden = false;
    };

    struct End {
        Ending ending;
        std::uint32_t taken;
        std::optional<int> percent;
    };

    void TakeOf(ClientId client, const ClientCame&, TimePoint now);
    void TakeOf(ClientId client, const Question& question, TimePoint now);
    void TakeOf(ClientId client, const StatusLine& line, TimePoint now);
    void TakeOf(ClientId client, const DownloadOver&, TimePoint now);
    void TakeOf(ClientId client, const ClientLeft&, TimePoint now);

    void Start(ClientId client, std::optional<std::uint32_t> blocks, TimePoint now);
    void Answer(std::int32_t answer);
    void EndWithoutDownload(Ending ending);
    void EndDownload(Ending ending, TimePoint now);
    void Dismiss();

    [[nodiscard]] Page QuestionPage() const;
    void AddDownload(Page& page, TimePoint now) const;

    ConversationListener& listener_;
    std::set<ClientId> clients_;
    TimePoint lastLeft_{};
    std::optional<OpenQuestion> question_;
    std::optional<Waiting> waiting_;
    std::optional<Download> download_;
    std::optional<End> end_;
};

}  // namespace toast
