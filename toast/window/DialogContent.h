#pragma once

#include <string>

#include "toast/conversation/Page.h"
#include "toast/window/Texts.h"

namespace toast {

// What a dialog window shows, in words.
struct DialogContent {
    enum class Bar { kNone, kMoving, kPercent };

    std::wstring title;
    std::wstring instruction;
    std::wstring content;
    std::wstring footer;         // empty for none
    std::wstring updateButton;   // empty for none
    std::wstring dismissButton;  // always there
    Bar bar = Bar::kNone;
    int percent = 0;
    bool isWarning = false;
    bool needsAttention = false;  // a person should look at it soon

    bool operator==(const DialogContent& other) const;

    // Whether a window that shows this one can show the other with nothing changed but its content and its
    // bar.
    [[nodiscard]] bool HasFrameOf(const DialogContent& other) const;
};

// The words of a page that is shown.
[[nodiscard]] DialogContent ContentOf(const Page& page, const Texts& texts);

}  // namespace toast
