#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace lab::rig {

// Told what goes between the program and a toast controller that does not speak to the laboratory, before it
// is passed on. Any thread. An empty function is told nothing.
struct PromptReports {
    // A call of the program's, with its texts.
    std::function<void(std::string_view method, const std::vector<std::wstring>& texts)> called;
    // "UserRespond" at the program's sink.
    std::function<void(LONG answer)> answered;
};

}  // namespace lab::rig
