#include "tests/trace/TraceFormats.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <stdexcept>
#include <string_view>

namespace {

constexpr std::size_t kFirstArgument = 10;

// How a type lies in a message, and by which letters a text may show it.
struct ItemType {
    enum class Length { Fixed, NarrowTerminated, WideTerminated };

    Length length;
    std::size_t size;  // in bytes, of a fixed length
    std::string_view letters;
};

const std::map<std::string, ItemType, std::less<>>& ItemTypes() {
    using enum ItemType::Length;
    static const std::map<std::string, ItemType, std::less<>> types{
        {"ItemString", {NarrowTerminated, 0, "s"}},
        {"ItemWString", {WideTerminated, 0, "s"}},
        {"ItemShort", {Fixed, 2, "d"}},
        {"ItemLong", {Fixed, 4, "d"}},
        {"ItemULong", {Fixed, 4, "u"}},
        {"ItemULongX", {Fixed, 4, "xX"}},
        {"ItemHRESULT", {Fixed, 4, "s"}},
        {"ItemWINERROR", {Fixed, 4, "s"}},
    };
    return types;
}

// Where a text shows an argument: "%10!s!".
const std::regex& Place() {
    static const std::regex place(R"(%(\d+)!([a-zA-Z])!)");
    return place;
}

class Reader {
  public:
    Reader(std::istream& file, std::string name) : file_(file), name_(std::move(name)) {}

    std::vector<TraceFormat> Read() {
        ReadGroup();
        std::vector<TraceFormat> formats;
        while (Next()) {
            TraceFormat format = ReadMessage();
            for (const TraceFormat& other : formats) {
                Require(other.number != format.number, "the number comes twice");
            }
            formats.push_back(std::move(format));
        }
        return formats;
    }

  private:
    bool Next() {
        ++lineNumber_;
        return static_cast<bool>(std::getline(file_, line_));
    }

    void Require(bool holds, const char* complaint) const {
        if (!holds) {
            throw std::runtime_error(name_ + ".tmf, line " + std::to_string(lineNumber_) + ": " + complaint);
        }
    }

    void ReadGroup() {
        const std::regex pattern("([0-9a-f]{8}(?:-[0-9a-f]{4}){3}-[0-9a-f]{12}) " + name_ +
                                 " // SRC=" + name_ + R"(\.cpp MJ= MN=)");
        while (Next() && line_.starts_with("//")) {
        }
        std::smatch match;
        Require(std::regex_match(line_, match, pattern), "not the line of this file's group");
        group_ = "{" + match[1].str() + "}";
        std::transform(group_.begin(), group_.end(), group_.begin(),
                       [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    }

    TraceFormat ReadMessage() {
        static const std::regex pattern(R"re(#typev (\w+) (\d+) "%0([^"]+)" // LEVEL=(\d+) FLAGS=(\d+))re");
        std::smatch match;
        Require(std::regex_match(line_, match, pattern), "not the line of a message");
        Require(match[1] == name_ + "_" + match[2].str(), "the message has another name");
        TraceFormat format{.group = group_,
                           .number = static_cast<unsigned>(std::stoul(match[2])),
                           .text = match[3],
                           .level = static_cast<unsigned>(std::stoul(match[4])),
                           .flags = static_cast<unsigned>(std::stoul(match[5])),
                           .arguments = {}};
        ReadArguments(format);
        CheckPlaces(format);
        return format;
    }

    void ReadArguments(TraceFormat& format) {
        static const std::regex pattern(R"((\w+), (Item\w+) -- (\d+))");
        Require(Next() && line_ == "{", "the arguments do not begin");
        while (Next() && line_ != "}") {
            std::smatch match;
            Require(std::regex_match(line_, match, pattern), "not the line of an argument");
            Require(std::stoul(match[3]) == kFirstArgument + format.arguments.size(),
                    "the arguments are not numbered from 10 on");
            Require(ItemTypes().contains(match[2].str()), "the type is not known");
            format.arguments.push_back({match[1], match[2]});
        }
        Require(line_ == "}", "the arguments do not end");
    }

    void CheckPlaces(const TraceFormat& format) const {
        const std::string rest = std::regex_replace(format.text, Place(), "");
        Require(rest.find('%') == std::string::npos, "a place in the text is malformed");
        for (std::sregex_iterator place(format.text.begin(), format.text.end(), Place()), end; place != end;
             ++place) {
            const std::size_t index = std::stoul((*place)[1]);
            Require(index >= kFirstArgument && index < kFirstArgument + format.arguments.size(),
                    "a place in the text has no argument");
            const auto& type = ItemTypes().at(format.arguments[index - kFirstArgument].type);
            Require(type.letters.find((*place)[2].str()) != std::string_view::npos,
                    "a place in the text shows its argument as another type");
        }
    }

    std::istream& file_;
    std::string name_;
    std::string group_;
    std::string line_;
    std::size_t lineNumber_ = 0;
};

// Whether the bytes are one value of the type: a reader of the message that goes by the types would find the
// next argument where it is.
bool Fits(const ItemType& type, const std::string& bytes) {
    switch (type.length) {
        case ItemType::Length::Fixed:
            return bytes.size() == type.size;
        case ItemType::Length::NarrowTerminated:
            return !bytes.empty() && bytes.find('\0') == bytes.size() - 1;
        case ItemType::Length::WideTerminated:
            for (std::size_t offset = 0; offset + 1 < bytes.size(); offset += 2) {
                if (bytes[offset] == '\0' && bytes[offset + 1] == '\0') {
                    return offset + 2 == bytes.size();
                }
            }
            return false;
    }
    return false;
}

std::string Hexadecimal(std::uint32_t value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%08x", static_cast<unsigned>(value));
    return text.data();
}

std::string Words(const std::string& type, const std::string& bytes) {
    if (type == "ItemString") {
        return bytes.c_str();
    }
    if (type == "ItemWString") {
        std::string narrow;
        for (std::size_t offset = 0; offset + 2 < bytes.size(); offset += 2) {
            narrow.push_back(bytes[offset]);
        }
        return narrow;
    }
    if (type == "ItemShort") {
        std::int16_t value = 0;
        std::memcpy(&value, bytes.data(), sizeof value);
        return std::to_string(value);
    }
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data(), sizeof value);
    if (type == "ItemLong") {
        return std::to_string(static_cast<std::int32_t>(value));
    }
    if (type == "ItemHRESULT" || type == "ItemULongX") {
        return "0x" + Hexadecimal(value);
    }
    return std::to_string(value);
}

}  // namespace

std::vector<TraceFormat> ReadTraceFormats(std::istream& file, const std::string& name) {
    return Reader(file, name).Read();
}

std::vector<TraceFormat> ReadTraceFormats(const std::filesystem::path& folder) {
    std::vector<TraceFormat> formats;
    std::set<std::string> groups;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".tmf") {
            continue;
        }
        std::ifstream file(entry.path());
        for (TraceFormat& format : ReadTraceFormats(file, entry.path().stem().string())) {
            formats.push_back(std::move(format));
        }
        if (formats.empty() || !groups.insert(formats.back().group).second) {
            throw std::runtime_error("no messages, or a group of two files: " + entry.path().string());
        }
    }
    if (formats.empty()) {
        throw std::runtime_error("no trace-format files in " + folder.string());
    }
    return formats;
}

std::string Format(const TraceFormat& format, const std::vector<std::string>& arguments) {
    if (arguments.size() != format.arguments.size()) {
        throw std::runtime_error(std::to_string(arguments.size()) + " arguments instead of " +
                                 std::to_string(format.arguments.size()));
    }
    std::string words = format.text;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const TraceFormat::Argument& argument = format.arguments[index];
        if (!Fits(ItemTypes().at(argument.type), arguments[index])) {
            throw std::runtime_error(argument.name + " is no " + argument.type);
        }
        const std::regex place("%" + std::to_string(kFirstArgument + index) + "![a-zA-Z]!");
        words = std::regex_replace(words, place, Words(argument.type, arguments[index]));
    }
    return words;
}
