#pragma once

#include <nlohmann/json.hpp>

namespace lab::rig {

// What this process holds: `handles`, `threads`, `private_bytes`. Throws std::runtime_error when the system
// does not tell.
[[nodiscard]] nlohmann::json ProcessResources();

}  // namespace lab::rig
