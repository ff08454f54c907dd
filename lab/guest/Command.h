#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace lab::guest {

// What the host has sent is no command, or makes no sense. The text says what is wrong.
class InvalidCommand : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// One command of the host's. Its fields are checked as they are read: each reader throws InvalidCommand,
// which names the field, when that is missing, of another type, or outside of what is allowed.
class Command {
  public:
    // Throws InvalidCommand for what is no object with a text "command".
    explicit Command(nlohmann::json message);

    [[nodiscard]] const std::string& Name() const { return name_; }
    [[nodiscard]] bool Has(std::string_view field) const { return message_.contains(field); }

    // From `lowest` to `highest`, both included.
    [[nodiscard]] std::uint64_t Number(std::string_view field, std::uint64_t lowest,
                                       std::uint64_t highest) const;
    // At most kLongestText bytes, none of them 0.
    [[nodiscard]] std::string Text(std::string_view field) const;
    // A list of such texts.
    [[nodiscard]] std::vector<std::string> Texts(std::string_view field) const;
    // Written in hexadecimal digits of either case, with blanks between the bytes or not; at most `most`
    // bytes.
    [[nodiscard]] std::vector<std::uint8_t> Bytes(std::string_view field, std::size_t most) const;

    static constexpr std::size_t kLongestText = 4096;

  private:
    [[nodiscard]] const nlohmann::json& Field(std::string_view field) const;

    nlohmann::json message_;
    std::string name_;
};

}  // namespace lab::guest
