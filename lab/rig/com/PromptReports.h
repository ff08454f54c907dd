#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace lab::rig {

// Told what goes between the program and a toast controller. Any thread. An empty function is told nothing;
// the first two are for a toast controller that does not speak to the laboratory.
struct PromptReports {
    // A call of the program's that the toast controller has taken, with its texts.
    std::function<void(std::string_view method, const std::vector<std::wstring>& texts)> called;
    // "UserRespond" at the program's sink, before it is passed on.
    std::function<void(LONG answer)> answered;
    // The program's sink is about to be called (true), and has returned (false).
    std::function<void(bool isHandling)> handling = {};
};

}  // namespace lab::rig
