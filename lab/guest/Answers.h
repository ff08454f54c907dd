#pragma once

#include <string_view>
#include <system_error>

#include <nlohmann/json_fwd.hpp>

namespace lab::guest {

// The answers to a command. It was carried out, and these are the fields that it tells.
[[nodiscard]] nlohmann::json DoneAnswer(std::string_view command, const nlohmann::json& fields);
// It was handed to the kernel, which refused: `errno` is the error's name ("EPIPE"), `why` what was tried, in
// words.
[[nodiscard]] nlohmann::json KernelRefusedAnswer(std::string_view command, const std::system_error& error);
// It makes no sense: nothing was done.
[[nodiscard]] nlohmann::json RefusedAnswer(std::string_view command, std::string_view why);

}  // namespace lab::guest
