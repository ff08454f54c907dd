#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lab/rig/contracts/BreachReport.h"

// The breaches that were told, as "contract: call". For one thread.
class ToldBreaches {
  public:
    [[nodiscard]] lab::rig::BreachReport Report() {
        return [this](std::string_view contract, std::string_view call) {
            told_.push_back(std::string(contract) + ": " + std::string(call));
        };
    }
    // Those since the last time.
    [[nodiscard]] std::vector<std::string> Take() { return std::exchange(told_, {}); }

  private:
    std::vector<std::string> told_;
};
