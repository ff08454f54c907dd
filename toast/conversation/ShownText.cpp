#include "toast/conversation/ShownText.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace toast {
namespace {

constexpr std::size_t kMostRead = 1024;
constexpr std::size_t kMostShown = 40;

constexpr std::wstring_view kFullWidthAmpersand = L"\uFF06";
constexpr wchar_t kEllipsis = 0x2026;
constexpr wchar_t kFirstStrongIsolate = 0x2068;
constexpr wchar_t kPopDirectionalIsolate = 0x2069;

struct Range {
    std::uint32_t first;
    std::uint32_t last;

    [[nodiscard]] bool Holds(std::uint32_t character) const {
        return first <= character && character <= last;
    }
};

// Controls, line ends, marks of direction and of joining, fillers, surrogates, what is no character, and
// tags.
constexpr std::array kInvisible{
    Range{0x0000, 0x001F}, Range{0x007F, 0x009F}, Range{0x00AD, 0x00AD},    Range{0x061C, 0x061C},
    Range{0x115F, 0x1160}, Range{0x180B, 0x180F}, Range{0x200B, 0x200F},    Range{0x2028, 0x202E},
    Range{0x2060, 0x206F}, Range{0x3164, 0x3164}, Range{0xD800, 0xDFFF},    Range{0xFE00, 0xFE0F},
    Range{0xFEFF, 0xFEFF}, Range{0xFFF0, 0xFFFF}, Range{0xE0000, 0x10FFFF},
};

// Hebrew, Arabic and their neighbours, and the scripts of the upper planes that are written as they are.
constexpr std::array kRightToLeft{
    Range{0x0590, 0x08FF},   Range{0xFB1D, 0xFDFF},   Range{0xFE70, 0xFEFC},
    Range{0x10800, 0x10FFF}, Range{0x1E800, 0x1EFFF},
};

bool IsAmong(const auto& ranges, std::uint32_t character) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [character](const Range& range) { return range.Holds(character); });
}

bool IsBlank(std::uint32_t character) {
    constexpr std::uint32_t kNoBreakSpace = 0x00A0;
    constexpr std::uint32_t kIdeographicSpace = 0x3000;
    constexpr Range kTypographicSpaces{0x2000, 0x200A};
    return character == ' ' || character == kNoBreakSpace || character == kIdeographicSpace ||
           kTypographicSpaces.Holds(character);
}

// Takes the next character off the text; half a pair comes as itself.
std::uint32_t NextCharacter(std::wstring_view& text) {
    constexpr Range kHigh{0xD800, 0xDBFF};
    constexpr Range kLow{0xDC00, 0xDFFF};
    const std::uint32_t first = text[0];
    const std::uint32_t second = text.size() > 1 ? text[1] : 0U;
    if (kHigh.Holds(first) && kLow.Holds(second)) {
        text.remove_prefix(2);
        return 0x10000U + ((first - kHigh.first) << 10U) + (second - kLow.first);
    }
    text.remove_prefix(1);
    return first;
}

// Where the text would grow too long, an ellipsis takes the place of its last character.
class ShownLine {
  public:
    void Add(std::uint32_t character, std::wstring_view units) {
        if (IsBlank(character)) {
            blankPending_ = !line_.empty();
            return;
        }
        if (blankPending_) {
            blankPending_ = false;
            Append(L" ");
        }
        isRightToLeft_ = isRightToLeft_ || IsAmong(kRightToLeft, character);
        Append(units);
    }

    [[nodiscard]] bool IsFull() const { return count_ > kMostShown; }

    [[nodiscard]] std::wstring Text() const {
        std::wstring text = line_;
        if (IsFull()) {
            text.resize(endOfLastButOne_);
            text += kEllipsis;
        }
        return isRightToLeft_ ? kFirstStrongIsolate + text + kPopDirectionalIsolate : text;
    }

  private:
    void Append(std::wstring_view units) {
        ++count_;
        line_ += units;
        if (count_ == kMostShown - 1) {
            endOfLastButOne_ = line_.size();
        }
    }

    std::wstring line_;
    std::size_t count_ = 0;
    std::size_t endOfLastButOne_ = 0;
    bool blankPending_ = false;
    bool isRightToLeft_ = false;
};

}  // namespace

std::wstring ShownText(std::wstring_view text) {
    std::wstring_view left = text.substr(0, kMostRead);
    ShownLine line;
    while (!left.empty() && !line.IsFull()) {
        const std::wstring_view before = left;
        const std::uint32_t character = NextCharacter(left);
        if (!IsAmong(kInvisible, character)) {
            line.Add(character,
                     character == L'&' ? kFullWidthAmpersand : before.substr(0, before.size() - left.size()));
        }
    }
    return line.Text();
}

}  // namespace toast
