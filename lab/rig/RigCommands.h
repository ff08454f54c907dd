#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "lab/rig/Bus.h"

namespace lab::rig {

// Carries out one command of the command-line program, all but "settle", and gives the event that answers it.
// Throws std::exception with the reason when the command cannot be done.
[[nodiscard]] nlohmann::json CarryOut(Bus& bus, const std::string& name, const nlohmann::json& command);

}  // namespace lab::rig
