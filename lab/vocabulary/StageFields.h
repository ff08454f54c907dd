#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

// What the readers of the wire's stage have in common. All throw std::runtime_error, with a text that names
// the field, for a value that the field cannot have.
namespace lab {

[[noreturn]] inline void Refuse(const std::string& field, const nlohmann::json& value) {
    throw std::runtime_error("the stage's " + field + " cannot be " + value.dump());
}

template <typename Number>
Number ToNumber(const std::string& field, const nlohmann::json& value) {
    if (!value.is_number_unsigned() ||
        value.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<Number>::max()}) {
        Refuse(field, value);
    }
    return value.get<Number>();
}

template <typename Choice, std::size_t Count>
Choice ToChoice(const std::string& field, const nlohmann::json& value,
                const std::array<std::pair<std::string_view, Choice>, Count>& choices) {
    for (const auto& [text, choice] : choices) {
        if (value == text) {
            return choice;
        }
    }
    Refuse(field, value);
}

}  // namespace lab
