#pragma once

#include <functional>
#include <string_view>

namespace lab::rig {

// Told that the program did what Windows does not allow: the contract's name and the call that breaks it. Any
// thread.
using BreachReport = std::function<void(std::string_view contract, std::string_view call)>;

}  // namespace lab::rig
