#include "lab/guest/Command.h"

#include <utility>

#include "lab/vocabulary/HexText.h"

namespace lab::guest {
namespace {

using nlohmann::json;

[[noreturn]] void Refuse(std::string_view field, const std::string& why) {
    throw InvalidCommand(std::string(field) + ' ' + why);
}

std::string TextOf(std::string_view field, const json& value) {
    if (!value.is_string()) {
        Refuse(field, "is no text");
    }
    auto text = value.get<std::string>();
    if (text.size() > Command::kLongestText) {
        Refuse(field, "is too long");
    }
    if (text.find('\0') != std::string::npos) {
        Refuse(field, "has a zero in it");
    }
    return text;
}

}  // namespace

Command::Command(json message) : message_(std::move(message)) {
    if (!message_.is_object()) {
        throw InvalidCommand("not a JSON object");
    }
    name_ = Text("command");
}

std::uint64_t Command::Number(std::string_view field, std::uint64_t lowest, std::uint64_t highest) const {
    const json& value = Field(field);
    if (!value.is_number_unsigned()) {
        Refuse(field, "is no whole number from 0");
    }
    const auto number = value.get<std::uint64_t>();
    if (number < lowest || number > highest) {
        Refuse(field, "is not from " + std::to_string(lowest) + " to " + std::to_string(highest));
    }
    return number;
}

std::string Command::Text(std::string_view field) const {
    return TextOf(field, Field(field));
}

std::vector<std::string> Command::Texts(std::string_view field) const {
    const json& value = Field(field);
    if (!value.is_array()) {
        Refuse(field, "is no list");
    }
    std::vector<std::string> texts;
    for (const json& each : value) {
        texts.push_back(TextOf(field, each));
    }
    return texts;
}

std::vector<std::uint8_t> Command::Bytes(std::string_view field, std::size_t most) const {
    const json& value = Field(field);
    if (!value.is_string()) {
        Refuse(field, "is no text");
    }
    auto bytes = BytesFromHex(value.get_ref<const std::string&>());
    if (!bytes) {
        Refuse(field, "is not hexadecimal");
    }
    if (bytes->size() > most) {
        Refuse(field, "has more than " + std::to_string(most) + " bytes");
    }
    return std::move(*bytes);
}

const json& Command::Field(std::string_view field) const {
    const auto found = message_.find(field);
    if (found == message_.end()) {
        Refuse(field, "is missing");
    }
    return *found;
}

}  // namespace lab::guest
