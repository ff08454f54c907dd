#pragma once

#include <memory>

#include "lab/guest/CommandTable.h"
#include "lab/guest/ModuleSets.h"
#include "lab/guest/Places.h"
#include "lab/guest/RunningProgram.h"

namespace lab::guest {

// The commands about the guest itself: "kernel-log", "load", "run" and "power-off". docs/laboratory.md lists
// their fields.
class SystemCommands {
  public:
    // Throws std::runtime_error when the image has no modules.
    explicit SystemCommands(const Places& places);
    SystemCommands(const SystemCommands&) = delete;
    SystemCommands& operator=(const SystemCommands&) = delete;

    // The table's handlers live no longer than this object.
    void AddTo(CommandTable& table);

    // The program that "run" has started; null when none runs.
    [[nodiscard]] const RunningProgram* Program() const { return program_.get(); }
    // Looks after that program: the answer to "run" once it has ended.
    [[nodiscard]] std::optional<nlohmann::json> TakeProgramEnd();

    // Whether the host has asked for the end.
    [[nodiscard]] bool IsToEnd() const { return isToEnd_; }

  private:
    [[nodiscard]] nlohmann::json KernelLog(const Command& command) const;
    void Run(const Command& command);

    Places places_;
    ModuleSets modules_;
    std::unique_ptr<RunningProgram> program_;
    bool isToEnd_ = false;
};

}  // namespace lab::guest
