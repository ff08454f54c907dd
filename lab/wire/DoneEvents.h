#pragma once

#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace lab {

// The answer to a command; add the fields of that command's answer to it.
[[nodiscard]] nlohmann::json DoneEvent(std::string_view command);
[[nodiscard]] nlohmann::json RefusedEvent(std::string_view command, std::string_view why);

}  // namespace lab
