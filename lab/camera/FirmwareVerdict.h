#pragma once

namespace lab {

// What a camera has in its flash, in the end.
struct FirmwareVerdict {
    enum class Content { Old, Image, Other };

    bool isValid = false;  // the boot loader would start it
    Content content = Content::Other;

    // It would run what nobody has made.
    [[nodiscard]] bool IsWrong() const { return isValid && content == Content::Other; }
};

}  // namespace lab
