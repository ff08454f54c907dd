#pragma once

#include <chrono>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "lab/rig/bus/Bus.h"
#include "lab/rig/service/EventBurst.h"

namespace lab::rig {

// Carries out one command of the command-line program, all but "settle", "control", "burst" and "rest", and
// gives the event that answers it. Throws std::exception with the reason when the command cannot be done.
[[nodiscard]] nlohmann::json CarryOut(Bus& bus, const std::string& name, const nlohmann::json& command);

// What a "burst" command asks for. Throws std::exception with the reason when it makes no sense.
[[nodiscard]] EventBurst BurstOf(const nlohmann::json& command);
// How long a "rest" command wants the machine to rest. Throws likewise.
[[nodiscard]] std::chrono::milliseconds RestOf(const nlohmann::json& command);

}  // namespace lab::rig
