#include "check/JsonWriter.h"

#include <array>
#include <cstddef>

namespace check {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// The length of the UTF-8 sequence that begins here, by the Unicode standard's table; 0 when none does.
std::size_t SequenceLength(std::string_view text) {
    const auto byte = [text](std::size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
    };
    const auto isContinued = [&byte](std::size_t from, std::size_t to) {
        for (std::size_t index = from; index < to; ++index) {
            if ((byte(index) & 0xC0U) != 0x80U) {
                return false;
            }
        }
        return true;
    };
    const unsigned first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return isContinued(1, 2) ? 2 : 0;
    }
    if (first >= 0xE0 && first <= 0xEF) {
        const bool isOverlong = first == 0xE0 && byte(1) < 0xA0;
        const bool isSurrogate = first == 0xED && byte(1) > 0x9F;
        return isContinued(1, 3) && !isOverlong && !isSurrogate ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const bool isOverlong = first == 0xF0 && byte(1) < 0x90;
        const bool isTooLarge = first == 0xF4 && byte(1) > 0x8F;
        return isContinued(1, 4) && !isOverlong && !isTooLarge ? 4 : 0;
    }
    return 0;
}

std::string EscapedControl(char character) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    switch (character) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default: {
            const auto code = static_cast<unsigned char>(character);
            return std::string("\\u00") + kDigits[code >> 4U] + kDigits[code & 0xFU];
        }
    }
}

}  // namespace

std::string QuotedForJson(std::string_view text) {
    std::string quoted = "\"";
    while (!text.empty()) {
        const std::size_t length = SequenceLength(text);
        const char first = text.front();
        if (length == 0) {
            quoted += kReplacement;
        } else if (first == '"' || first == '\\') {
            quoted += '\\';
            quoted += first;
        } else if (static_cast<unsigned char>(first) < 0x20 || first == 0x7F) {
            quoted += EscapedControl(first);
        } else {
            quoted += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return quoted + '"';
}

JsonWriter& JsonWriter::BeginObject() {
    Separate();
    Open('{', '}');
    return *this;
}

JsonWriter& JsonWriter::BeginObject(std::string_view name) {
    Name(name);
    Open('{', '}');
    return *this;
}

JsonWriter& JsonWriter::BeginList(std::string_view name) {
    Name(name);
    Open('[', ']');
    return *this;
}

JsonWriter& JsonWriter::End() {
    const char closing = closings_.back();
    closings_.pop_back();
    if (!isFirst_) {
        text_ += '\n';
        text_.append(2 * closings_.size(), ' ');
    }
    text_ += closing;
    isFirst_ = false;
    return *this;
}

JsonWriter& JsonWriter::Text(std::string_view name, std::string_view value) {
    Name(name);
    text_ += QuotedForJson(value);
    return *this;
}

JsonWriter& JsonWriter::Number(std::string_view name, std::uint64_t value) {
    Name(name);
    text_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Truth(std::string_view name, bool value) {
    Name(name);
    text_ += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Null(std::string_view name) {
    Name(name);
    text_ += "null";
    return *this;
}

JsonWriter& JsonWriter::Texts(std::string_view name, const std::vector<std::string>& values) {
    BeginList(name);
    for (const std::string& value : values) {
        TextElement(value);
    }
    return End();
}

JsonWriter& JsonWriter::TextElement(std::string_view value) {
    Separate();
    text_ += QuotedForJson(value);
    return *this;
}

JsonWriter& JsonWriter::NumberElement(std::uint64_t value) {
    Separate();
    text_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Whole(std::string_view name, std::string_view json) {
    Name(name);
    text_ += json;
    return *this;
}

void JsonWriter::Open(char bracket, char closing) {
    text_ += bracket;
    closings_ += closing;
    isFirst_ = true;
}

void JsonWriter::Separate() {
    if (closings_.empty()) {
        return;
    }
    text_ += isFirst_ ? "\n" : ",\n";
    text_.append(2 * closings_.size(), ' ');
    isFirst_ = false;
}

void JsonWriter::Name(std::string_view name) {
    Separate();
    text_ += QuotedForJson(name) + ": ";
}

}  // namespace check
