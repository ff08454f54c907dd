#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "lab/guest/Command.h"

namespace lab::guest {

// The commands that there are, each with what carries it out, and the answers to the host's lines.
class CommandTable {
  public:
    // Carries a command out and returns the fields of its answer; nothing when the answer comes later. It may
    // throw InvalidCommand, with which the command is refused, and std::system_error of an errno, which is
    // told.
    using Handler = std::function<std::optional<nlohmann::json>(const Command& command)>;

    // A name's second handler takes the place of its first.
    void Add(std::string name, Handler handler);

    // Carries out what a line of the host's says; the answer, or nothing when it comes later or the line is
    // the stage, which needs none. Whatever the line is, it ends in one of these.
    [[nodiscard]] std::optional<nlohmann::json> Answer(std::string_view line) const;

  private:
    [[nodiscard]] std::optional<nlohmann::json> CarryOut(const Command& command) const;

    std::map<std::string, Handler, std::less<>> handlers_;
};

}  // namespace lab::guest
