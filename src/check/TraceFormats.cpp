#include "check/TraceFormats.h"

#include "check/Words.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace check {
namespace {

constexpr std::size_t kGuidLength = 36;
constexpr unsigned kFirstArgument = 10;

using Bytes = std::span<const std::uint8_t>;

bool IsGuid(std::string_view text) {
    return text.size() == kGuidLength && std::all_of(text.begin(), text.end(), [](char character) {
               return character == '-' || (character >= '0' && character <= '9') ||
                      (character >= 'a' && character <= 'f') || (character >= 'A' && character <= 'F');
           });
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return lower;
}

std::string_view FirstWord(std::string_view& rest) {
    const std::size_t begin = std::min(rest.find_first_not_of(" \t"), rest.size());
    const std::size_t end = std::min(rest.find_first_of(" \t", begin), rest.size());
    const std::string_view word = rest.substr(begin, end - begin);
    rest.remove_prefix(end);
    return word;
}

std::optional<unsigned> NumberOf(std::string_view text) {
    unsigned number = 0;
    const auto [next, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && next == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::string HexOf(Bytes bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

// Takes so many bytes from the front; empty when there are not so many.
std::optional<Bytes> Take(Bytes& rest, std::size_t count) {
    if (rest.size() < count) {
        return std::nullopt;
    }
    const Bytes taken = rest.first(count);
    rest = rest.subspan(count);
    return taken;
}

// A text up to its terminator, or to the end: some are sent without. Wide ones are cut to their low bytes:
// they are plain ASCII.
std::string TakeText(Bytes& rest, std::size_t characterSize) {
    std::string text;
    while (const auto character = Take(rest, characterSize)) {
        if (std::all_of(character->begin(), character->end(), [](std::uint8_t byte) { return byte == 0; })) {
            return text;
        }
        text += static_cast<char>(character->front());
    }
    rest = {};
    return text;
}

std::uint64_t Value(Bytes bytes) {
    std::uint64_t value = 0;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        value |= std::uint64_t{bytes[index]} << (8 * index);
    }
    return value;
}

// An argument of this kind, taken from the front; empty when it is cut short or of a kind that is not known.
std::optional<std::string> TakeArgument(const std::string& kind, Bytes& rest) {
    if (kind == "ItemString") {
        return TakeText(rest, 1);
    }
    if (kind == "ItemWString") {
        return TakeText(rest, 2);
    }
    if (kind == "ItemHRESULT" || kind == "ItemNTSTATUS") {
        const auto bytes = Take(rest, 4);
        return bytes ? std::optional(Hex(static_cast<std::uint32_t>(Value(*bytes)))) : std::nullopt;
    }
    if (kind == "ItemLong") {
        const auto bytes = Take(rest, 4);
        return bytes ? std::optional(std::to_string(static_cast<std::int32_t>(Value(*bytes)))) : std::nullopt;
    }
    if (kind == "ItemShort") {
        const auto bytes = Take(rest, 2);
        return bytes ? std::optional(std::to_string(static_cast<std::int16_t>(Value(*bytes)))) : std::nullopt;
    }
    const bool isLong = kind == "ItemULong" || kind == "ItemWINERROR" || kind == "ItemULongX";
    if (!isLong && kind != "ItemULongLong" && kind != "ItemULongLongX") {
        return std::nullopt;
    }
    const auto bytes = Take(rest, isLong ? 4 : 8);
    if (!bytes) {
        return std::nullopt;
    }
    if (kind == "ItemULongLongX") {
        const std::uint64_t value = Value(*bytes);
        return Hex(static_cast<std::uint32_t>(value >> 32U)) +
               Hex(static_cast<std::uint32_t>(value)).substr(2);
    }
    return kind.ends_with('X') ? Hex(static_cast<std::uint32_t>(Value(*bytes)))
                               : std::to_string(Value(*bytes));
}

// The text with the arguments in their places, which are "%10!s!", "%11!d!" and so on; "%0" is nothing.
std::string Filled(std::string_view text, const std::vector<std::string>& arguments) {
    std::string filled;
    while (!text.empty()) {
        if (text.front() != '%') {
            filled += text.front();
            text.remove_prefix(1);
            continue;
        }
        text.remove_prefix(1);
        std::size_t length = 0;
        while (length < text.size() && text[length] >= '0' && text[length] <= '9') {
            ++length;
        }
        const auto index = NumberOf(text.substr(0, length));
        text.remove_prefix(length);
        if (text.starts_with('!')) {
            const std::size_t end = text.find('!', 1);
            text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        }
        if (index && *index >= kFirstArgument) {
            const std::size_t position = *index - kFirstArgument;
            filled += position < arguments.size() ? arguments[position] : "(missing)";
        }
    }
    return filled;
}

}  // namespace

void TraceFormats::Read(std::string_view file) {
    std::string group;
    Message* message = nullptr;
    while (!file.empty()) {
        std::string_view line = file.substr(0, file.find('\n'));
        file.remove_prefix(std::min(line.size() + 1, file.size()));
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        std::string_view rest = line;
        const std::string_view word = FirstWord(rest);
        if (word == "#typev") {
            FirstWord(rest);
            const auto number = NumberOf(FirstWord(rest));
            const std::size_t begin = rest.find('"');
            const std::size_t end = rest.rfind("\" //");
            if (number && begin != std::string_view::npos && end != std::string_view::npos && end > begin) {
                message = &messages_[{group, *number}];
                *message = {std::string(rest.substr(begin + 1, end - begin - 1)), {}};
            }
        } else if (word.ends_with(',') && message != nullptr) {
            message->kinds.emplace_back(FirstWord(rest));
        } else if (IsGuid(word)) {
            group = Lower(word);
            names_[group] = FirstWord(rest);
            message = nullptr;
        }
    }
}

std::string TraceFormats::Text(const std::string& group, unsigned number, Bytes payload) const {
    const auto message = messages_.find({group, number});
    if (message == messages_.end()) {
        return "message " + std::to_string(number) + " of " + group + " (" + HexOf(payload) + ")";
    }
    std::vector<std::string> arguments;
    Bytes rest = payload;
    for (const std::string& kind : message->second.kinds) {
        const auto argument = TakeArgument(kind, rest);
        if (!argument) {
            arguments.push_back("(cut short: " + HexOf(rest) + ")");
            break;
        }
        arguments.push_back(*argument);
    }
    return Filled(message->second.text, arguments);
}

std::string TraceFormats::NameOf(const std::string& group) const {
    const auto name = names_.find(group);
    return name == names_.end() ? group : name->second;
}

}  // namespace check
