#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "toast/conversation/Event.h"
#include "toast/conversation/VersionRelation.h"

namespace toast {

enum class PageKind {
    kNone,
    kQuestion,
    kWaiting,  // the user has accepted, and no download has started yet
    kDownload,
    kEnd,
};

// How it ended, as far as that can be known.
enum class Ending {
    kAllTaken,
    kLastMayBeMissing,
    kStopped,
    kUnknown,         // a download that never told how many blocks there are
    kNeverBegan,      // it was over before it began
    kNothingStarted,  // the user accepted, and nothing followed
    kClientGone,      // the client went away in the middle
};

// What a window shows, language apart. Fields that are not of its kind are as they are here.
struct Page {
    PageKind kind = PageKind::kNone;

    // A question.
    Question question;
    VersionRelation relation = VersionRelation::kDifferent;
    bool replacesEarlier = false;  // another question was open, and no longer is

    // A download, or one that goes on behind a question; and the end of one.
    bool hasDownload = false;
    std::optional<int> percent;
    std::uint32_t blocksTaken = 0;
    std::optional<std::chrono::seconds> timeLeft;
    bool isSilent = false;

    Ending ending = Ending::kUnknown;

    bool operator==(const Page&) const = default;
};

}  // namespace toast
