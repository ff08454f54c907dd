#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "lab/rig/bus/BusSettings.h"

namespace lab::rig {

// What the command-line program sets before the run begins.
struct RunSettings {
    struct TraceSession {
        std::uint8_t level = 0;
        std::uint32_t flags = 0;
    };
    std::optional<TraceSession> trace;
    // How many times MFStartup fails before it succeeds.
    std::uint32_t failedMediaStarts = 0;
    // Whether the rig tells what goes between the program and the toast controller, which does not do so
    // itself.
    bool recordsPrompts = false;
    // The records of the event logs that the program reads, as XML.
    std::vector<std::string> eventRecords;
    BusSettings bus;

    // Reads the wire's stage. Throws std::runtime_error or a JSON exception, with a text that names the
    // field, for a stage that says something unknown or impossible: a scenario with a slip of the pen must
    // not look like one that passed.
    [[nodiscard]] static RunSettings FromStage(const nlohmann::json& stage);
};

}  // namespace lab::rig
